// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_GSTREAMER_SETTINGS_H
#define AIPLC_GSTREAMER_SETTINGS_H

#include <aiplc/receiver.h>
#include <gst/gst.h>

#include <string>

namespace aiplc::gst {

// The properties that can be set.
struct Settings {
    bool ai = true;
    bool useInbandFec = true;
    bool secondLook = true;
    AiPlcPredictor predictor = AIPLC_PREDICTOR_IN_PROCESS;
    int decoderComplexity = 10;
    std::string model;  // empty: where the receiver looks for it

    // modelPath points into these settings.
    AiPlcReceiverOptions ReceiverOptions(uint32_t sampleRate) const;
};

// Numbers of the properties.
enum Property : guint {
    kPropertyAi = 1,
    kPropertyUseInbandFec,
    kPropertySecondLook,
    kPropertyPredictor,
    kPropertyDecoderComplexity,
    kPropertyModel,
    kPropertyStats
};

// Declares the properties, with the texts that gst-inspect-1.0 shows.
void InstallProperties(GObjectClass *type);
// False for a property that is not one of the settings.
bool SetSetting(Settings &settings, guint property, const GValue *value);
bool GetSetting(const Settings &settings, guint property, GValue *value);

}  // namespace aiplc::gst

#endif
