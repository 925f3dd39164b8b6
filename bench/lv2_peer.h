// Another reverb: one LV2 plug-in with its default settings, hosted through lilv.
#ifndef BRISEL_BENCH_LV2_PEER_H
#define BRISEL_BENCH_LV2_PEER_H

#include <lilv/lilv.h>
#include <lv2/worker/worker.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace bench {

// The installed LV2 plug-ins and what all their instances share.
class Lv2World {
public:
    Lv2World();
    ~Lv2World();
    Lv2World(const Lv2World&) = delete;
    Lv2World& operator=(const Lv2World&) = delete;

    // Every plug-in of the class Reverb, sorted by name.
    std::vector<const LilvPlugin*> reverbs() const;

    struct Host;
    Host& host() { return *host_; }
    LilvWorld* get() const { return world_; }

private:
    LilvWorld* world_;
    std::unique_ptr<Host> host_;
};

class Lv2Peer {
public:
    // Null, with the reason in `why_not`, for a plug-in that this host cannot run.
    static std::unique_ptr<Lv2Peer> start(Lv2World& world, const LilvPlugin* plugin,
                                          double sample_rate, uint32_t frames,
                                          std::string& why_not);
    ~Lv2Peer();
    Lv2Peer(const Lv2Peer&) = delete;
    Lv2Peer& operator=(const Lv2Peer&) = delete;

    const std::string& name() const { return name_; }

    // An input that people turn.
    struct Control {
        std::string name;
        float least, most;
        float* value;
    };
    const std::vector<Control>& controls() const { return turned_; }

    // A plug-in with one input hears the left one; one output appears on both sides.
    void process(const float* in_l, const float* in_r, float* out_l, float* out_r);

private:
    Lv2Peer() = default;
    static LV2_Worker_Status schedule(LV2_Worker_Schedule_Handle, uint32_t size, const void* data);
    static LV2_Worker_Status respond(LV2_Worker_Respond_Handle, uint32_t size, const void* data);

    std::string name_;
    uint32_t frames_ = 0, sequence_type_ = 0, chunk_type_ = 0;
    LilvInstance* instance_ = nullptr;
    const LV2_Worker_Interface* worker_ = nullptr;
    LV2_Worker_Schedule scheduler_ = {this, schedule};
    std::vector<float> controls_, spare_;
    std::vector<Control> turned_;
    std::vector<uint32_t> inputs_, outputs_;
    std::vector<std::vector<uint64_t>> atoms_;
    std::vector<std::pair<uint32_t, size_t>> atom_inputs_, atom_outputs_; // port, buffer
};

} // namespace bench

#endif
