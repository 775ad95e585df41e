// A small LV2 host on lilv for the tests: it loads the bundle this build
// assembled and runs one of its plug-ins as a DAW does, with a URID map, the
// bufsz:maxBlockLength option and a worker whose job runs after each run (or
// when the test says), kept in fixed storage so that scheduling allocates
// nothing; the answer goes back as soon as the job is done.
#pragma once

#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/options/options.h>
#include <lv2/presets/presets.h>
#include <lv2/worker/worker.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

using Channels = std::vector<std::vector<float>>;

class Lv2TestHost
{
public:
    static constexpr double kRate = 44100.0;

    static LilvWorld* world()
    {
        static LilvWorld* const world = [] {
            LilvWorld* loaded = lilv_world_new();
            LilvNode* bundle = lilv_new_file_uri(loaded, nullptr, VANDREL_LV2_BUNDLE_DIR "/");
            lilv_world_load_bundle(loaded, bundle);
            lilv_node_free(bundle);
            return loaded;
        }();
        return world;
    }
    static const LilvPlugin* plugin(const char* uri)
    {
        LilvNode* node = lilv_new_uri(world(), uri);
        const LilvPlugin* found =
            lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world()), node);
        lilv_node_free(node);
        return found;
    }
    // The plug-in's presets as lilv hands them to hosts: label -> symbol -> value.
    static std::map<std::string, std::map<std::string, float>> presets(const LilvPlugin* plugin)
    {
        std::map<std::string, std::map<std::string, float>> result;
        LilvNode* presetClass = lilv_new_uri(world(), LV2_PRESETS__Preset);
        LilvNodes* related = lilv_plugin_get_related(plugin, presetClass);
        LILV_FOREACH(nodes, i, related)
        {
            lilv_world_load_resource(world(), lilv_nodes_get(related, i));
            LilvState* state =
                lilv_state_new_from_world(world(), &sMap, lilv_nodes_get(related, i));
            lilv_state_emit_port_values(
                state,
                [](const char* symbol, void* to, const void* value, uint32_t, uint32_t) {
                    (*static_cast<std::map<std::string, float>*>(to))[symbol] =
                        *static_cast<const float*>(value);
                },
                &result[lilv_state_get_label(state)]);
            lilv_state_free(state);
        }
        lilv_nodes_free(related);
        lilv_node_free(presetClass);
        return result;
    }
    explicit Lv2TestHost(const char* uri, int32_t maxBlock = 4096)
        : mPlugin(plugin(uri)), mMaxBlock(maxBlock), mValues(lilv_plugin_get_num_ports(mPlugin))
    {
        lilv_plugin_get_port_ranges_float(mPlugin, nullptr, nullptr, mValues.data());
        mInstance = lilv_plugin_instantiate(mPlugin, kRate, mFeatures);
        for (uint32_t i = 0; i < mValues.size(); ++i)
            lilv_instance_connect_port(mInstance, i, &mValues[i]);
        mWorker = static_cast<const LV2_Worker_Interface*>(
            lilv_instance_get_extension_data(mInstance, LV2_WORKER__interface));
        lilv_instance_activate(mInstance);
    }
    ~Lv2TestHost()
    {
        lilv_instance_deactivate(mInstance);
        lilv_instance_free(mInstance);
    }

    LilvInstance* instance() const { return mInstance; }
    float& control(const std::string& symbol)
    {
        LilvNode* node = lilv_new_string(world(), symbol.c_str());
        const LilvPort* port = lilv_plugin_get_port_by_symbol(mPlugin, node);
        lilv_node_free(node);
        return mValues.at(port != nullptr ? lilv_port_get_index(mPlugin, port) : UINT32_MAX);
    }
    void applyPreset(const std::string& label)
    {
        const auto all = presets(mPlugin);
        for (const auto& [symbol, value] : all.at(label))
            control(symbol) = value;
    }
    // Connects the audio ports to frame `at` of in and out.
    void connect(const Channels& in, Channels& out, size_t at)
    {
        const uint32_t first = static_cast<uint32_t>(mValues.size() - 2 * in.size());
        for (uint32_t c = 0; c < in.size(); ++c) {
            lilv_instance_connect_port(mInstance, first + c, const_cast<float*>(&in[c][at]));
            lilv_instance_connect_port(mInstance, first + in.size() + c, &out[c][at]);
        }
    }
    // Runs the plug-in over `in` in runs of `block` frames.
    Channels process(const Channels& in, size_t block)
    {
        Channels out(in.size(), std::vector<float>(in[0].size()));
        for (size_t at = 0; at < in[0].size(); at += block) {
            connect(in, out, at);
            lilv_instance_run(mInstance, static_cast<uint32_t>(std::min(block, in[0].size() - at)));
            runWorker();
        }
        return out;
    }
    // The worker's job, if any, and its answer, as a host runs them between runs.
    void runWorker()
    {
        if (const uint32_t size = std::exchange(mJobSize, 0))
            mWorker->work(lilv_instance_get_handle(mInstance), &respond, this, size, mJob);
    }

private:
    static LV2_URID map(LV2_URID_Map_Handle, const char* uri)
    {
        static std::vector<std::string> uris;
        if (std::find(uris.begin(), uris.end(), uri) == uris.end())
            uris.push_back(uri);
        return static_cast<LV2_URID>(std::find(uris.begin(), uris.end(), uri) - uris.begin() + 1);
    }
    static LV2_Worker_Status schedule(void* self, uint32_t size, const void* data)
    {
        auto& host = *static_cast<Lv2TestHost*>(self);
        if (size > sizeof(host.mJob) || host.mJobSize != 0)
            return LV2_WORKER_ERR_NO_SPACE;
        std::memcpy(host.mJob, data, host.mJobSize = size);
        return LV2_WORKER_SUCCESS;
    }
    static LV2_Worker_Status respond(void* self, uint32_t size, const void* data)
    {
        auto& host = *static_cast<Lv2TestHost*>(self);
        return host.mWorker->work_response(lilv_instance_get_handle(host.mInstance), size, data);
    }

    static inline LV2_URID_Map sMap{nullptr, &map};
    const LilvPlugin* mPlugin;
    int32_t mMaxBlock;
    std::vector<float> mValues; // control values, by port index
    LV2_Options_Option mOptions[2] = {{LV2_OPTIONS_INSTANCE, 0,
                                       map(nullptr, LV2_BUF_SIZE__maxBlockLength), sizeof(int32_t),
                                       map(nullptr, LV2_ATOM__Int), &mMaxBlock},
                                      {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}};
    LV2_Worker_Schedule mSchedule{this, &schedule};
    LV2_Feature mFeatureList[3] = {{LV2_URID__map, &sMap},
                                   {LV2_OPTIONS__options, mOptions},
                                   {LV2_WORKER__schedule, &mSchedule}};
    const LV2_Feature* mFeatures[4] = {&mFeatureList[0], &mFeatureList[1], &mFeatureList[2],
                                       nullptr};
    LilvInstance* mInstance = nullptr;
    const LV2_Worker_Interface* mWorker = nullptr;
    char mJob[16] = {};
    uint32_t mJobSize = 0;
};
