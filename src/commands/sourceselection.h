#pragma once

/// Stops and deletes the current source, if there is one, and leaves none. Main thread; waits for the
/// source's bus thread.
void discardSource();

/// Ends the reception measurement and discards the current source: what the commands do that take the stream
/// input over.
void discardMeasurementAndSource();
