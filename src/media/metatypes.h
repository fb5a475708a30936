#pragma once

/// Registers the types that cross queued signal connections with Qt's meta-type system, under their exact
/// names. Call once, on the main thread, after the application object exists.
void registerMetaTypes();
