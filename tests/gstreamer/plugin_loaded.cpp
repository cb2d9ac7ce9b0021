// SPDX-License-Identifier: BSD-2-Clause

#include <gst/gst.h>
#include <gtest/gtest.h>

namespace {

// GStreamer with the plug-in of this build, and a registry of its own.
class PluginLoaded : public testing::Environment {
  public:
    void SetUp() override {
        g_setenv("GST_REGISTRY", AIPLC_REGISTRY, TRUE);
        gst_init(nullptr, nullptr);
        GError *error = nullptr;
        GstPlugin *plugin = gst_plugin_load_file(AIPLC_PLUGIN, &error);
        ASSERT_NE(plugin, nullptr) << error->message;
        gst_object_unref(plugin);
    }
};

const testing::Environment *const kPluginLoaded =
    testing::AddGlobalTestEnvironment(new PluginLoaded);

}  // namespace
