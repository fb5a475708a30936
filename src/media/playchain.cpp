#include "media/playchain.h"

#include "media/owned.h"

#include <algorithm>

namespace {

/// Whether the pipeline counts the element among its sinks: it asks each of them for its latency, and the
/// stream ends when all of them have seen its end.
void countAsSink(GstElement* element, bool counts)
{
    GST_OBJECT_LOCK(element);
    if (counts)
        GST_OBJECT_FLAG_SET(element, GST_ELEMENT_FLAG_SINK);
    else
        GST_OBJECT_FLAG_UNSET(element, GST_ELEMENT_FLAG_SINK);
    GST_OBJECT_UNLOCK(element);
}

/// Hands the chain's states back to the pipeline.
void unlock(const PlayChain& chain)
{
    for (GstElement* element : chain)
        gst_element_set_locked_state(element, FALSE);
    countAsSink(chain.back(), true);
}

/// Downstream first, so that nothing arrives at an element that is not ready.
template <typename Step> void fromSinkToQueue(const PlayChain& chain, Step step)
{
    std::for_each(chain.rbegin(), chain.rend(), step);
}

} // namespace

bool isFed(const PlayChain& chain)
{
    return gst_pad_is_linked(Owned<GstPad>(gst_element_get_static_pad(chain.front(), "sink")).get());
}

void setAside(const PlayChain& chain)
{
    if (chain.empty())
        return;
    for (GstElement* element : chain)
        gst_element_set_locked_state(element, TRUE);
    countAsSink(chain.back(), false);
    // The sink gives up its waiting in this, and tells the pipeline so.
    fromSinkToQueue(chain, [](GstElement* element) { gst_element_set_state(element, GST_STATE_NULL); });
}

void bringBack(const PlayChain& chain)
{
    if (chain.empty())
        return;
    fromSinkToQueue(chain, [](GstElement* element) { gst_element_set_state(element, GST_STATE_NULL); });
    unlock(chain);
}

void rejoin(const PlayChain& chain)
{
    if (chain.empty() || !gst_element_is_locked_state(chain.back()))
        return;
    unlock(chain);
    fromSinkToQueue(chain, [](GstElement* element) { gst_element_sync_state_with_parent(element); });
}
