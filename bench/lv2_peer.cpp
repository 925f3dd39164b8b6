#include "bench/lv2_peer.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>

namespace bench {

namespace {

constexpr size_t kAtomWords = 1024; // of 8 bytes, in each event port

} // namespace

// What a host offers to its plug-ins: URI numbers, options, blocks of one length.
struct Lv2World::Host {
    std::map<std::string, LV2_URID> numbers;
    std::vector<std::string> uris = {""};

    LV2_URID_Map map_data = {this, map};
    LV2_URID_Unmap unmap_data = {this, unmap};
    float sample_rate = 0.0f;
    int32_t block_length = 0;
    std::vector<LV2_Options_Option> options;
    std::vector<LV2_Feature> features;

    static LV2_URID map(LV2_URID_Map_Handle handle, const char* uri) {
        Host& host = *static_cast<Host*>(handle);
        const auto [entry, added] =
            host.numbers.try_emplace(uri, static_cast<LV2_URID>(host.uris.size()));
        if (added) host.uris.emplace_back(uri);
        return entry->second;
    }
    static const char* unmap(LV2_URID_Unmap_Handle handle, LV2_URID number) {
        const Host& host = *static_cast<Host*>(handle);
        return number > 0 && number < host.uris.size() ? host.uris[number].c_str() : nullptr;
    }

    void prepare(double rate, uint32_t frames) {
        sample_rate = static_cast<float>(rate);
        block_length = static_cast<int32_t>(frames);
        const auto option = [this](const char* key, const char* type, const void* value) {
            return LV2_Options_Option{LV2_OPTIONS_INSTANCE, 0,    map(this, key), 4,
                                      map(this, type),      value};
        };
        options = {option(LV2_BUF_SIZE__minBlockLength, LV2_ATOM__Int, &block_length),
                   option(LV2_BUF_SIZE__maxBlockLength, LV2_ATOM__Int, &block_length),
                   option(LV2_BUF_SIZE__nominalBlockLength, LV2_ATOM__Int, &block_length),
                   option(LV2_PARAMETERS__sampleRate, LV2_ATOM__Float, &sample_rate),
                   {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}};
        features = {{LV2_URID__map, &map_data},
                    {LV2_URID__unmap, &unmap_data},
                    {LV2_OPTIONS__options, options.data()},
                    {LV2_BUF_SIZE__boundedBlockLength, nullptr},
                    {LV2_BUF_SIZE__fixedBlockLength, nullptr},
                    {LV2_BUF_SIZE__powerOf2BlockLength, nullptr},
                    {LV2_CORE__isLive, nullptr}};
    }
};

Lv2World::Lv2World() : world_(lilv_world_new()), host_(std::make_unique<Host>()) {
    lilv_world_load_all(world_);
}

Lv2World::~Lv2World() {
    lilv_world_free(world_);
}

std::vector<const LilvPlugin*> Lv2World::reverbs() const {
    std::vector<std::pair<std::string, const LilvPlugin*>> found;
    const LilvPlugins* plugins = lilv_world_get_all_plugins(world_);
    LILV_FOREACH(plugins, i, plugins) {
        const LilvPlugin* plugin = lilv_plugins_get(plugins, i);
        const LilvNode* type = lilv_plugin_class_get_uri(lilv_plugin_get_class(plugin));
        if (type && std::strcmp(lilv_node_as_uri(type), LV2_CORE__ReverbPlugin) == 0) {
            LilvNode* name = lilv_plugin_get_name(plugin);
            found.emplace_back(name ? lilv_node_as_string(name) : "", plugin);
            lilv_node_free(name);
        }
    }
    std::ranges::sort(found);
    std::vector<const LilvPlugin*> sorted;
    sorted.reserve(found.size());
    for (const auto& [name, plugin] : found) sorted.push_back(plugin);
    return sorted;
}

// A feature that the plug-in requires and nobody offers; "" for none.
static std::string missing_feature(const LilvPlugin* plugin,
                                   const std::vector<const LV2_Feature*>& offered) {
    std::string missing;
    LilvNodes* required = lilv_plugin_get_required_features(plugin);
    LILV_FOREACH(nodes, i, required) {
        const std::string uri = lilv_node_as_uri(lilv_nodes_get(required, i));
        if (std::ranges::none_of(offered, [&](const auto* f) { return uri == f->URI; }))
            missing = uri;
    }
    lilv_nodes_free(required);
    return missing;
}

std::unique_ptr<Lv2Peer> Lv2Peer::start(Lv2World& world, const LilvPlugin* plugin,
                                        double sample_rate, uint32_t frames, std::string& why_not) {
    Lv2World::Host& host = world.host();
    host.prepare(sample_rate, frames);
    std::vector<const LV2_Feature*> features;
    std::unique_ptr<Lv2Peer> peer(new Lv2Peer);
    const LV2_Feature worker = {LV2_WORKER__schedule, &peer->scheduler_};
    for (const LV2_Feature& feature : host.features) features.push_back(&feature);
    features.push_back(&worker);

    if (const std::string missing = missing_feature(plugin, features); !missing.empty()) {
        why_not = "needs " + missing;
        return nullptr;
    }
    features.push_back(nullptr);

    // Some are just called "reverb": the bundle's name tells whose.
    LilvNode* name = lilv_plugin_get_name(plugin);
    std::string bundle = lilv_node_as_uri(lilv_plugin_get_bundle_uri(plugin));
    while (bundle.ends_with('/')) bundle.pop_back();
    peer->name_ =
        std::string(lilv_node_as_string(name)) + " (" + bundle.substr(bundle.rfind('/') + 1) + ")";
    lilv_node_free(name);
    peer->frames_ = frames;
    peer->instance_ = lilv_plugin_instantiate(plugin, sample_rate, features.data());
    if (!peer->instance_) {
        why_not = "cannot be instantiated";
        return nullptr;
    }
    peer->worker_ = static_cast<const LV2_Worker_Interface*>(
        lilv_instance_get_extension_data(peer->instance_, LV2_WORKER__interface));

    const auto is = [&](const LilvPort* port, const char* type) {
        LilvNode* node = lilv_new_uri(world.get(), type);
        const bool result = lilv_port_is_a(plugin, port, node);
        lilv_node_free(node);
        return result;
    };
    peer->sequence_type_ = Lv2World::Host::map(&host, LV2_ATOM__Sequence);
    peer->chunk_type_ = Lv2World::Host::map(&host, LV2_ATOM__Chunk);
    const uint32_t ports = lilv_plugin_get_num_ports(plugin);
    peer->controls_.resize(ports);
    peer->spare_.resize(frames);
    peer->atoms_.reserve(ports);
    std::vector<float> least(ports), most(ports);
    lilv_plugin_get_port_ranges_float(plugin, least.data(), most.data(), peer->controls_.data());
    for (uint32_t index = 0; index < ports; ++index) {
        const LilvPort* port = lilv_plugin_get_port_by_index(plugin, index);
        const bool input = is(port, LV2_CORE__InputPort);
        if (is(port, LV2_CORE__AudioPort)) {
            (input ? peer->inputs_ : peer->outputs_).push_back(index);
        } else if (is(port, LV2_CORE__ControlPort)) {
            if (std::isnan(peer->controls_[index])) peer->controls_[index] = 0.0f;
            lilv_instance_connect_port(peer->instance_, index, &peer->controls_[index]);
            if (input && std::isfinite(least[index]) && std::isfinite(most[index])) {
                LilvNode* port_name = lilv_port_get_name(plugin, port);
                peer->turned_.push_back({lilv_node_as_string(port_name), least[index], most[index],
                                         &peer->controls_[index]});
                lilv_node_free(port_name);
            }
        } else if (is(port, LV2_ATOM__AtomPort)) {
            peer->atoms_.emplace_back(kAtomWords);
            (input ? peer->atom_inputs_ : peer->atom_outputs_)
                .emplace_back(index, peer->atoms_.size() - 1);
            lilv_instance_connect_port(peer->instance_, index, peer->atoms_.back().data());
        } else {
            lilv_instance_connect_port(peer->instance_, index, nullptr);
        }
    }
    if (peer->inputs_.empty() || peer->outputs_.empty()) {
        why_not = "has no audio input or output";
        return nullptr;
    }
    lilv_instance_activate(peer->instance_);
    return peer;
}

// Work that a plug-in hands to another thread is done at once, as in offline rendering.
LV2_Worker_Status Lv2Peer::schedule(LV2_Worker_Schedule_Handle handle, uint32_t size,
                                    const void* data) {
    Lv2Peer& peer = *static_cast<Lv2Peer*>(handle);
    if (!peer.worker_) return LV2_WORKER_ERR_UNKNOWN;
    return peer.worker_->work(lilv_instance_get_handle(peer.instance_), respond, &peer, size, data);
}

LV2_Worker_Status Lv2Peer::respond(LV2_Worker_Respond_Handle handle, uint32_t size,
                                   const void* data) {
    Lv2Peer& peer = *static_cast<Lv2Peer*>(handle);
    if (!peer.worker_->work_response) return LV2_WORKER_SUCCESS;
    return peer.worker_->work_response(lilv_instance_get_handle(peer.instance_), size, data);
}

Lv2Peer::~Lv2Peer() {
    if (!instance_) return;
    lilv_instance_deactivate(instance_);
    lilv_instance_free(instance_);
}

void Lv2Peer::process(const float* in_l, const float* in_r, float* out_l, float* out_r) {
    for (size_t k = 0; k < inputs_.size(); ++k) {
        const float* in = k == 0 ? in_l : in_r;
        lilv_instance_connect_port(instance_, inputs_[k], const_cast<float*>(in));
    }
    for (size_t k = 0; k < outputs_.size(); ++k) {
        float* out = k == 0 ? out_l : k == 1 ? out_r : spare_.data();
        lilv_instance_connect_port(instance_, outputs_[k], out);
    }
    // No events come in; there is room for those that go out.
    for (const auto& [port, buffer] : atom_inputs_) {
        auto* sequence = reinterpret_cast<LV2_Atom_Sequence*>(atoms_[buffer].data());
        sequence->atom = {sizeof(LV2_Atom_Sequence_Body), sequence_type_};
    }
    for (const auto& [port, buffer] : atom_outputs_) {
        auto* atom = reinterpret_cast<LV2_Atom*>(atoms_[buffer].data());
        *atom = {kAtomWords * sizeof(uint64_t) - sizeof(LV2_Atom), chunk_type_};
    }
    lilv_instance_run(instance_, frames_);
    if (outputs_.size() == 1) std::copy_n(out_l, frames_, out_r);
}

} // namespace bench
