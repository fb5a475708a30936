#pragma once

/// Ends the process with an explanation unless it runs as script/fuzz starts it: not as root, and with a root
/// file system that can not be written to. Call it first of all in LLVMFuzzerInitialize.
void requireContainment();
