#pragma once

/// What stands in for the DAB receiver behind the daemon's local socket.
namespace fakereceiver {

struct Behaviour
{
    int failedConnections = 0; ///< before one succeeds
    int shortAnswers = 0; ///< reads that deliver less than they ask for, before a whole answer
    bool takesBlocks = true; ///< false: sending to it fails
};

void set(Behaviour behaviour);

} // namespace fakereceiver
