// The display of a booted instrument. Without a screen it can only be asked what it is.
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

namespace {

struct Unref
{
    void operator()(gpointer object) const { gst_object_unref(object); }
};

/// GStreamer with the board's plug-in alone: the virtual instrument's has elements of the same names and types.
class BoardDisplay : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ::setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", 1);
        ::setenv("GST_REGISTRY_1_0", "/dev/null", 1);
        ::setenv("GST_REGISTRY_UPDATE", "no", 1);
        ::setenv("INSTRUMENT_KMS_PLUGIN", GST_PLUGINS_FOLDER "/libgstkms.so", 1);
        gst_init(nullptr, nullptr);
        GError* error = nullptr;
        GstPlugin* plugin = gst_plugin_load_file(INSTRUMENT_BOARD_PLUGIN, &error);
        ASSERT_NE(plugin, nullptr) << error->message;
        gst_object_unref(plugin);
    }

    static std::unique_ptr<GstElement, Unref> display()
    {
        GstElement* element = gst_element_factory_make("kmssink", nullptr);
        return std::unique_ptr<GstElement, Unref>(
            element != nullptr ? GST_ELEMENT(gst_object_ref_sink(element)) : nullptr);
    }
};

TEST_F(BoardDisplay, IsDebiansDisplayWithThePlatformsRatio)
{
    const auto element = display();
    ASSERT_NE(element, nullptr);
    EXPECT_STREQ(g_type_name(g_type_parent(G_OBJECT_TYPE(element.get()))), "GstKMSSink");
    g_object_set(element.get(), "display-ratio", 3, "max-lateness", G_GINT64_CONSTANT(200000000), nullptr);
    int ratio = 0;
    gint64 lateness = 0;
    g_object_get(element.get(), "display-ratio", &ratio, "max-lateness", &lateness, nullptr);
    gchar* driver = nullptr;
    g_object_get(element.get(), "driver-name", &driver, nullptr);
    EXPECT_STREQ(driver, "virtio_gpu");
    g_free(driver);
    EXPECT_EQ(ratio, 3);
    EXPECT_EQ(lateness, 200000000);
}

TEST_F(BoardDisplay, TakesWhatDecodersGiveInAnySize)
{
    const auto element = display();
    ASSERT_NE(element, nullptr);
    GstPad* pad = gst_element_get_static_pad(element.get(), "sink");
    GstCaps* decoded =
        gst_caps_from_string("video/x-raw, format=I420, width=720, height=576, framerate=25/1");
    GstCaps* taken = gst_pad_query_caps(pad, decoded);
    EXPECT_TRUE(gst_caps_can_intersect(taken, decoded));
    gst_caps_unref(taken);
    gst_caps_unref(decoded);
    gst_object_unref(pad);
}

} // namespace
