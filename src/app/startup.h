#pragma once

/// The start-up steps before the poll timer, in their fixed order: staged kernel, networking, settings,
/// controller's line and greeting, mixer, measurement object, GStreamer, FPGA. Main thread; blocks until all
/// are done. Each step runs even when an earlier one failed, except that only a configured FPGA has its PCIe
/// function rescanned.
void prepareInstrument();
