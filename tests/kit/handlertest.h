#pragma once

#include "support/ttyfixture.h"

#include <string>

/// A test of command handlers, which are called as the dispatcher calls them: with the controller's line,
/// GStreamer ready, the settings as after a start, no source and the measurement's object in place. It ends
/// without source again.
class HandlerTest : public ControllerLine
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// What a suite needs beside it; called unless the test is skipped.
    virtual void prepare() { }

    /// What has come to the controller, up to a pause.
    std::string reply(int quietMs = 50) { return controller().readUntilQuiet(quietMs); }
};
