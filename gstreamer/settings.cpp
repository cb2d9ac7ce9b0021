// SPDX-License-Identifier: BSD-2-Clause

#include "gstreamer/settings.h"

namespace aiplc::gst {
namespace {

constexpr GParamFlags kReadable =
    static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
// Changes count from the next time that the element leaves the state READY.
constexpr GParamFlags kSetting =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);

GType PredictorType() {
    static const GEnumValue kValues[] = {
        {AIPLC_PREDICTOR_NONE, "The codec's own concealment alone", "none"},
        {AIPLC_PREDICTOR_WORKER,
         "The network in a worker process, x64/xanu_audio_aiplc.exe beside the program", "worker"},
        {AIPLC_PREDICTOR_IN_PROCESS, "The network on the streaming thread", "in-process"},
        {0, nullptr, nullptr}};
    static const GType type = g_enum_register_static("AiplcOpusDecPredictor", kValues);
    return type;
}

}  // namespace

AiPlcReceiverOptions Settings::ReceiverOptions(uint32_t sampleRate) const {
    AiPlcReceiverOptions options;
    AiPlcReceiverDefaults(&options);
    options.sampleRate = sampleRate;
    options.predictor = ai ? predictor : AIPLC_PREDICTOR_NONE;
    options.useSecondLook = secondLook ? 1 : 0;
    options.useFec = useInbandFec ? 1 : 0;
    options.decoderComplexity = decoderComplexity;
    options.modelPath = model.empty() ? nullptr : model.c_str();
    // Losses are reported by events, so that silence on the wire need not be guessed at.
    options.expectPauses = 0;
    return options;
}

void InstallProperties(GObjectClass *type) {
    const auto flag = [type](Property number, const char *name, const char *nick, const char *text,
                             bool value) {
        g_object_class_install_property(
            type, number, g_param_spec_boolean(name, nick, text, value ? TRUE : FALSE, kSetting));
    };
    const Settings defaults;
    flag(kPropertyAi, "ai", "Neural concealment",
         "Fill losses with the neural network; false leaves them all to the codec, as "
         "predictor=none",
         defaults.ai);
    flag(kPropertyUseInbandFec, "use-inband-fec", "Use in-band FEC",
         "Recover lost frames from the in-band redundancy (FEC) of the packet behind them",
         defaults.useInbandFec);
    flag(kPropertySecondLook, "second-look", "Second look",
         "Ask the network for single lost frames too; false leaves those to the codec",
         defaults.secondLook);
    g_object_class_install_property(
        type, kPropertyPredictor,
        g_param_spec_enum("predictor", "Predictor",
                          "Where the network runs when ai is true: in-process repeats exactly and "
                          "needs nothing beside the program; worker has a time limit of 26 ms and "
                          "a process of its own",
                          PredictorType(), defaults.predictor, kSetting));
    g_object_class_install_property(
        type, kPropertyDecoderComplexity,
        g_param_spec_int(
            "decoder-complexity", "Decoder complexity",
            "Complexity of the Opus decoder of libopus 1.5 and later: from 5 on it "
            "conceals with a network of its own, from 6 on it enhances wideband speech",
            0, 10, defaults.decoderComplexity, kSetting));
    g_object_class_install_property(
        type, kPropertyModel,
        g_param_spec_string(
            "model", "Model",
            "File of the network's weights for predictor=in-process; null looks at "
            "AIPLC_MODEL of the environment, then for "
            "x64/xanu_audio_aiplc.model beside the program, then for the installed one",
            nullptr, kSetting));
    g_object_class_install_property(
        type, kPropertyStats,
        g_param_spec_boxed(
            "stats", "Statistics",
            "Counters since the stream began or was last flushed, drained or "
            "restarted, by the names of W3C's RTCInboundRtpStreamStats, and frames by "
            "what they were made of",
            GST_TYPE_STRUCTURE, kReadable));
    gst_type_mark_as_plugin_api(PredictorType(), static_cast<GstPluginAPIFlags>(0));
}

bool SetSetting(Settings &settings, guint property, const GValue *value) {
    switch (property) {
        case kPropertyAi:
            settings.ai = g_value_get_boolean(value) != FALSE;
            return true;
        case kPropertyUseInbandFec:
            settings.useInbandFec = g_value_get_boolean(value) != FALSE;
            return true;
        case kPropertySecondLook:
            settings.secondLook = g_value_get_boolean(value) != FALSE;
            return true;
        case kPropertyPredictor:
            settings.predictor = static_cast<AiPlcPredictor>(g_value_get_enum(value));
            return true;
        case kPropertyDecoderComplexity:
            settings.decoderComplexity = g_value_get_int(value);
            return true;
        case kPropertyModel: {
            const char *path = g_value_get_string(value);
            settings.model = path != nullptr ? path : "";
            return true;
        }
        default:
            return false;
    }
}

bool GetSetting(const Settings &settings, guint property, GValue *value) {
    switch (property) {
        case kPropertyAi:
            g_value_set_boolean(value, settings.ai ? TRUE : FALSE);
            return true;
        case kPropertyUseInbandFec:
            g_value_set_boolean(value, settings.useInbandFec ? TRUE : FALSE);
            return true;
        case kPropertySecondLook:
            g_value_set_boolean(value, settings.secondLook ? TRUE : FALSE);
            return true;
        case kPropertyPredictor:
            g_value_set_enum(value, settings.predictor);
            return true;
        case kPropertyDecoderComplexity:
            g_value_set_int(value, settings.decoderComplexity);
            return true;
        case kPropertyModel:
            g_value_set_string(value, settings.model.empty() ? nullptr : settings.model.c_str());
            return true;
        default:
            return false;
    }
}

}  // namespace aiplc::gst
