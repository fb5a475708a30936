"""The virtual instrument: the instrument's module as namespaces over an overlay of this machine's root."""
