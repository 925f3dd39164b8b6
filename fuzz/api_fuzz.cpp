// Random sequences of calls on the reverb and on the block engine, with arguments good and bad:
// NaN, infinities, huge and negative numbers, missing pointers. Buffers are exactly as long as a
// call may use.
#include <vector>

#include "brisel/reverb.h"
#include "fuzz/input.h"

namespace {

using fuzz::Input;

// Input samples and unwritten output samples for a call with `frames`, none where it must refuse.
struct Buffers {
    static constexpr float kUnwritten = 12345.0f;
    std::vector<float> in_l, in_r, out_l, out_r;

    Buffers(int32_t frames, int32_t longest, Input& input) {
        const size_t n = frames > 0 && frames <= longest ? static_cast<size_t>(frames) : 0;
        for (std::vector<float>* v : {&in_l, &in_r, &out_l, &out_r}) {
            v->reserve(n + 1); // a pointer that is no null even when there are no samples
            v->assign(n, kUnwritten);
        }
        fuzz::fill(in_l.data(), n, input);
        fuzz::fill(in_r.data(), n, input);
    }
    // A refusal writes nothing; what breaks the rules on lengths is refused.
    void check(int32_t status, int32_t frames, int32_t longest) const {
        for (const float y : out_l) FUZZ_REQUIRE(status == 0 || y == kUnwritten);
        if (frames < 1 || frames > longest || frames % 8 != 0) FUZZ_REQUIRE(status == -1);
    }
};

qv_reverb_params any_params(Input& input) {
    qv_reverb_params p;
    p.size = input.real(0.003f, 0.1f);
    p.t60 = input.real(0.05f, 12.0f);
    p.cascade_stages = input.integer(0, 3);
    p.t60_high = input.flag() ? 0.0f : input.real(0.0f, 5.0f);
    for (float* share : {&p.damp, &p.mix, &p.width}) *share = input.real(0.0f, 1.0f);
    p.modulate = input.bits<uint8_t>();
    p.er_enable = input.flag();
    p.er_size = input.real(0.004f, 0.2f);
    p.er_level = input.real(0.0f, 2.0f);
    p.eq_low_db = input.real(-24.0f, 24.0f);
    p.eq_high_db = input.real(-24.0f, 24.0f);
    return p;
}

void reverb(Input& input) {
    const int32_t longest = input.integer(1, 520) & (input.below(8) == 0 ? ~0 : ~7);
    // Higher rates take more memory and time than a fuzzer has.
    qv_reverb* rev = qv_reverb_create(std::min(input.integer(9001, 14000), 50000), longest);
    for (int calls = 0; rev && calls < 30 && !input.empty(); ++calls) {
        const uint32_t call = input.below(4);
        if (call == 0) {
            const qv_reverb_params params = any_params(input), before = rev->params;
            const bool refused = qv_reverb_set(rev, &params) != 0;
            FUZZ_REQUIRE(!std::memcmp(&rev->params, refused ? &before : &params, sizeof before));
        } else if (call == 1) {
            const int32_t capacity = std::min(input.integer(0, 3000), 3000);
            std::vector<float> left(static_cast<size_t>(std::max(capacity, 0)) + 1), right = left;
            float* const other = input.flag() ? right.data() : nullptr;
            const int32_t got = qv_reverb_flush(rev, left.data(), other, capacity);
            FUZZ_REQUIRE(got == -1 ? capacity < 1 : got >= 0 && got <= capacity);
        } else {
            const int32_t n = input.integer(-8, 520) & (input.flag() ? ~7 : ~0);
            Buffers b(n, longest, input);
            const uint8_t missing = input.bits<uint8_t>();
            const bool in_place = missing & 16;
            float* const right = in_place ? b.in_r.data() : b.out_r.data();
            const int32_t status = qv_reverb_process(
                rev, missing & 64 && missing & 8 ? nullptr : b.in_l.data(),
                missing & 1 ? nullptr : b.in_r.data(), in_place ? b.in_l.data() : b.out_l.data(),
                missing & 2 ? nullptr : right, n);
            b.check(status, n, longest);
        }
    }
    qv_reverb_destroy(rev);
}

void block_engine(Input& input) {
    int32_t delays[16];
    uint32_t sizes[16];
    const bool careful = input.below(4) != 0;
    for (int i = 0; i < 16; ++i) {
        sizes[i] = uint32_t{1} << input.below(13);
        delays[i] = static_cast<int32_t>(input.bits<uint16_t>() % sizes[i]);
        if (!careful && input.below(8) == 0) sizes[i] = input.bits<uint32_t>() % 5000;
        if (!careful && input.below(8) == 0) delays[i] = input.bits<int32_t>();
    }
    ffdn_block_n16 e;
    const int32_t longest = std::min(input.integer(1, 600), 5000);
    const uint32_t rate = input.bits<uint32_t>();
    if (ffdn_block_n16_init(&e, delays, sizes, longest, rate, input.real(0.0f, 5.0f)) != 0) return;
    for (int calls = 0; calls < 40 && !input.empty(); ++calls) {
        const uint32_t K = input.below(8) == 0 ? input.bits<uint32_t>() : input.below(4);
        const auto hz = static_cast<int32_t>(input.bits<uint16_t>());
        const float t60 = input.real(0.0f, 5.0f), other = input.real(0.01f, 1.0f);
        uint32_t stages[64];
        const uint32_t most = input.below(8) == 0 ? 65540 : 300;
        for (uint32_t& d : stages) d = input.bits<uint16_t>() % most * (most > 65535 ? 2 : 1);
        const uint32_t* given = input.below(4) == 0 ? nullptr : stages;
        const auto* gains = reinterpret_cast<const float*>(stages); // any bits will do
        switch (input.below(12)) {
        case 0:
            ffdn_block_n16_set_cascade(&e, K, given, uint32_t(hz), t60);
            break;
        case 1:
            ffdn_block_n16_set_vfm(&e, K, input.bits<uint64_t>(), uint32_t(hz), other, t60);
            break;
        case 2:
            ffdn_block_n16_set_post_delays(&e, given, hz, t60);
            break;
        case 3:
            ffdn_block_n16_clear_cascade(&e);
            break;
        case 4:
            ffdn_block_n16_set_two_band_t60(&e, hz, t60, other);
            break;
        case 5:
            ffdn_block_n16_set_modulation(&e, input.integer(0, 100), hz, K, other, t60);
            break;
        case 6:
            ffdn_block_n16_apply_modulation(&e, input.integer(-8, 600));
            break;
        case 7:
            ffdn_block_n16_set_stereo_outputs(&e, gains, given ? gains + 16 : nullptr, other, t60);
            ffdn_block_n16_set_stereo_inputs(&e, given ? gains + 32 : nullptr, gains + 48);
            break;
        case 8:
            FUZZ_REQUIRE(!(ffdn_block_n16_state_energy(&e) < 0.0));
            break;
        default:
            const int32_t n = input.integer(-8, 600) & (input.flag() ? ~7 : ~0);
            Buffers b(n, longest, input);
            const float *x_l = b.in_l.data(), *x_r = b.in_r.data();
            float *y_l = b.out_l.data(), *y_r = b.out_r.data();
            const uint32_t kind = input.below(3);
            b.check(kind == 0   ? ffdn_block_n16_process(&e, x_l, y_l, n)
                    : kind == 1 ? ffdn_block_n16_process_stereo(&e, x_l, y_l, y_r, n)
                                : ffdn_block_n16_process_stereo_in(&e, x_l, x_r, y_l, y_r, n),
                    n, longest);
        }
        for (int i = 0; i < 16; ++i) FUZZ_REQUIRE(e.line_wpos[i] <= e.line_mask[i]);
    }
    ffdn_block_n16_free(&e);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    while (!input.empty()) input.flag() ? reverb(input) : block_engine(input);
    return 0;
}
