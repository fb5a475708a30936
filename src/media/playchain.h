#pragma once

#include <gst/gst.h>
#include <vector>

/// The elements of a play branch's chain, in the order of the data: from its queue to its sink. Borrowed.
using PlayChain = std::vector<GstElement*>;

// A service may come without picture, or without sound that can be decoded. The chain that then gets no data
// would never be ready to play, and the pipeline, which starts all of its sinks together, would wait for it
// with the other one. Such a chain is set aside: it stays in the pipeline, in NULL, and state changes, the
// stream's end and latency pass it by.

/// True when something is linked to the queue at the chain's head.
bool isFed(const PlayChain& chain);

/// Any thread, a streaming thread that feeds another chain among them. Nothing for an empty chain.
void setAside(const PlayChain& chain);

/// Undoes setAside() and leaves the chain in NULL. Any thread but the chain's own; nothing for an empty
/// chain.
void bringBack(const PlayChain& chain);

/// Undoes setAside() in a pipeline that plays already: the chain follows it to its state. Nothing for a chain
/// that is not set aside. Any thread but the chain's own.
void rejoin(const PlayChain& chain);
