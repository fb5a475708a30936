#pragma once

#include "media/gstsource.h"
#include "mediatest.h"

#include <algorithm>

/// Test around one stream source; the pipeline is found from outside.
class SourceTest : public MediaTest
{
protected:
    ~SourceTest() override { hold(nullptr); }

    /// Takes the source over; the one held before ends.
    void hold(gstsource* source) { m_source.reset(source); }

    gstsource& source() { return *m_source; }

    /// Names of the elements in the source's bin, sorted.
    std::vector<std::string> childrenOfBin() const
    {
        std::vector<std::string> names;
        for (GList* item = GST_BIN_CHILDREN(element("my_bin")); item; item = item->next)
            names.emplace_back(GST_OBJECT_NAME(item->data));
        std::sort(names.begin(), names.end());
        return names;
    }

    /// Name of the element whose pad the bin's only pad, a ghost pad "src", stands for; empty when it is not
    /// so.
    std::string ghostPadOwner() const
    {
        GstElement* bin = element("my_bin");
        if (bin->numpads != 1)
            return {};
        GstPad* pad = gst_element_get_static_pad(bin, "src");
        if (!pad)
            return {};
        GstPad* target = GST_IS_GHOST_PAD(pad) ? gst_ghost_pad_get_target(GST_GHOST_PAD(pad)) : nullptr;
        gst_object_unref(pad);
        if (!target)
            return {};
        std::string name = GST_OBJECT_NAME(GST_OBJECT_PARENT(target));
        gst_object_unref(target);
        return name;
    }

private:
    std::unique_ptr<gstsource> m_source;
};
