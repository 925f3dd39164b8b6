// Random sequences of calls over the whole C API, with arguments good and bad: NaN, infinities, huge and
// negative numbers, missing pointers wherever the headers allow them. What they forbid, and no call checks
// (a null record for a kernel, say), is left alone. Buffers are exactly as long as the call may use.
#include "brisel/fdn_delay_stage_ref.h"
#include "brisel/ffdn_defaults_n16.h"
#include "brisel/ffdn_ref_n16.h"
#include "brisel/fwht_ref.h"
#include "brisel/reverb.h"

#include <cmath>
#include <vector>

#include "fuzz/input.h"

namespace {

using fuzz::Input;

constexpr float kUnwritten = 12345.0f;

// Input samples and unwritten output samples for a call with `frames`, none where it must refuse.
struct Buffers {
    std::vector<float> in_l, in_r, out_l, out_r;

    Buffers(int32_t frames, int32_t longest, Input& input) {
        const size_t n = frames > 0 && frames <= longest ? static_cast<size_t>(frames) : 0;
        for (std::vector<float>* in : {&in_l, &in_r}) {
            in->resize(n);
            fuzz::fill(in->data(), n, input);
        }
        out_l.assign(n, kUnwritten);
        out_r.assign(n, kUnwritten);
        // A pointer that is no null even when there are no samples.
        for (std::vector<float>* v : {&in_l, &in_r, &out_l, &out_r}) v->reserve(1);
    }
    bool written() const {
        for (const float y : out_l)
            if (y != kUnwritten) return true;
        return out_l.empty();
    }
};

// The control word of the floating-point unit comes back as it was, whatever the call.
class SameMode {
public:
    SameMode() : before_(mode()) {}
    ~SameMode() { FUZZ_REQUIRE(mode() == before_); }

private:
    static uint32_t mode() {
        uint32_t mxcsr;
        asm volatile("stmxcsr %0" : "=m"(mxcsr));
        return mxcsr & 0xFFC0; // all but the sticky flags
    }
    uint32_t before_;
};

int32_t any_rate(Input& input) {
    const int32_t rate = input.integer(9001, 14000);
    return rate > 50000 ? 50000 : rate; // more takes more memory and time than a fuzzer has
}

qv_reverb_params any_params(Input& input) {
    qv_reverb_params p;
    p.size = input.real(0.003f, 0.1f);
    p.t60 = input.real(0.05f, 12.0f);
    p.cascade_stages = input.integer(0, 3);
    p.t60_high = input.flag() ? 0.0f : input.real(0.0f, 5.0f);
    p.damp = input.real(0.0f, 1.0f);
    p.mix = input.real(0.0f, 1.0f);
    p.width = input.real(0.0f, 1.0f);
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
    qv_reverb* rev = qv_reverb_create(any_rate(input), longest);
    for (int calls = 0; rev && calls < 30 && !input.empty(); ++calls) {
        const SameMode same_mode;
        switch (input.below(4)) {
        case 0: {
            const qv_reverb_params params = any_params(input), before = rev->params;
            const int32_t status = qv_reverb_set(rev, &params);
            FUZZ_REQUIRE(
                !std::memcmp(&rev->params, status == 0 ? &params : &before, sizeof before));
            break;
        }
        case 1: {
            const int32_t capacity = input.integer(0, 3000);
            const size_t room =
                capacity > 0 && capacity <= 3000 ? static_cast<size_t>(capacity) : 0;
            std::vector<float> left(room), right(room);
            if (capacity > 3000) break;
            left.reserve(1);
            const int32_t got =
                qv_reverb_flush(rev, left.data(), input.flag() ? right.data() : nullptr, capacity);
            FUZZ_REQUIRE(got == -1 ? capacity < 1 : got >= 0 && got <= capacity);
            break;
        }
        default: {
            const int32_t frames = input.integer(-8, 520) & (input.flag() ? ~7 : ~0);
            Buffers b(frames, longest, input);
            const uint8_t missing = input.bits<uint8_t>();
            const bool in_place = missing & 16;
            float* const out_l = in_place ? b.in_l.data() : b.out_l.data();
            float* const out_r = in_place ? b.in_r.data() : b.out_r.data();
            const int32_t status =
                qv_reverb_process(rev, missing & 64 && missing & 8 ? nullptr : b.in_l.data(),
                                  missing & 1 ? nullptr : b.in_r.data(), out_l,
                                  missing & 2 ? nullptr : out_r, frames);
            if (status != 0) FUZZ_REQUIRE(!b.written() || b.out_l.empty());
            if (frames < 1 || frames > longest || frames % 8 != 0) FUZZ_REQUIRE(status == -1);
        }
        }
    }
    qv_reverb_destroy(rev);
}

// Delays and rings that mostly fit together.
void any_lines(Input& input, int32_t* delays, uint32_t* sizes) {
    const bool careful = input.below(4) != 0;
    for (int i = 0; i < BRISEL_LINES; ++i) {
        sizes[i] = uint32_t{1} << input.below(13);
        delays[i] = static_cast<int32_t>(input.bits<uint16_t>() % sizes[i]);
        if (careful) continue;
        if (input.below(8) == 0) sizes[i] = input.bits<uint32_t>() % 5000;
        if (input.below(8) == 0) delays[i] = input.bits<int32_t>();
    }
}

// Stage delays, null for the default ones.
const uint32_t* any_stages(Input& input, uint32_t (&delays)[64]) {
    if (input.below(4) == 0) return nullptr;
    const uint32_t longest = input.below(8) == 0 ? 65540 : input.below(8) == 0 ? 0 : 300;
    for (uint32_t& delay : delays)
        delay = input.bits<uint16_t>() % (longest + 1) * (longest > 65535 ? 2 : 1);
    if (input.below(8) == 0) delays[input.below(16)] = input.bits<uint32_t>();
    return delays;
}

template <size_t N>
const float* any_gains(Input& input, float (&gains)[N]) {
    for (float& gain : gains) gain = input.real(-1.0f, 1.0f);
    return input.flag() ? gains : nullptr;
}

void block_engine(Input& input) {
    ffdn_block_n16 e;
    int32_t delays[BRISEL_LINES];
    uint32_t sizes[BRISEL_LINES];
    any_lines(input, delays, sizes);
    int32_t longest = input.integer(1, 600);
    if (longest > 5000) longest = 5000;
    if (ffdn_block_n16_init(&e, delays, sizes, longest, input.bits<uint32_t>(),
                            input.real(0.0f, 5.0f)) != 0)
        return;
    for (int calls = 0; calls < 40 && !input.empty(); ++calls) {
        uint32_t stages[64];
        float left[BRISEL_LINES], right[BRISEL_LINES];
        const uint32_t K = input.below(8) == 0 ? input.bits<uint32_t>() : input.below(4);
        switch (input.below(12)) {
        case 0:
            ffdn_block_n16_set_cascade(&e, K, any_stages(input, stages), input.bits<uint16_t>(),
                                       input.real(0.0f, 5.0f));
            break;
        case 1:
            ffdn_block_n16_set_vfm(&e, K, input.bits<uint64_t>(), input.bits<uint16_t>(),
                                   input.real(0.01f, 1.0f), input.real(0.0f, 5.0f));
            break;
        case 2:
            ffdn_block_n16_set_post_delays(&e, any_stages(input, stages), input.integer(0, 50000),
                                           input.real(0.0f, 5.0f));
            break;
        case 3:
            ffdn_block_n16_clear_cascade(&e);
            break;
        case 4:
            ffdn_block_n16_set_two_band_t60(&e, input.integer(0, 50000), input.real(0.0f, 5.0f),
                                            input.real(0.0f, 5.0f));
            break;
        case 5:
            ffdn_block_n16_set_modulation(&e, input.integer(0, 100), input.integer(0, 50000),
                                          input.bits<uint64_t>(), input.real(0.0f, 2.0f),
                                          input.real(0.0f, 5.0f));
            break;
        case 6:
            ffdn_block_n16_apply_modulation(&e, input.integer(-8, 600));
            break;
        case 7: {
            const float* l = any_gains(input, left);
            const float* r = any_gains(input, right);
            ffdn_block_n16_set_stereo_outputs(&e, l, r, input.real(-1.0f, 1.0f), 0.0f);
            ffdn_block_n16_set_stereo_inputs(&e, r, l);
            break;
        }
        case 8:
            FUZZ_REQUIRE(!(ffdn_block_n16_state_energy(&e) < 0.0));
            break;
        default: {
            const int32_t n = input.integer(-8, 600) & (input.flag() ? ~7 : ~0);
            Buffers b(n, longest, input);
            const uint32_t kind = input.below(3);
            const int32_t status =
                kind == 0   ? ffdn_block_n16_process(&e, b.in_l.data(), b.out_l.data(), n)
                : kind == 1 ? ffdn_block_n16_process_stereo(&e, b.in_l.data(), b.out_l.data(),
                                                            b.out_r.data(), n)
                            : ffdn_block_n16_process_stereo_in(&e, b.in_l.data(), b.in_r.data(),
                                                               b.out_l.data(), b.out_r.data(), n);
            if (status != 0) FUZZ_REQUIRE(!b.written() || b.out_l.empty());
            if (n < 1 || n > longest || n % 8 != 0) FUZZ_REQUIRE(status == -1);
        }
        }
        for (int i = 0; i < BRISEL_LINES; ++i) FUZZ_REQUIRE(e.line_wpos[i] <= e.line_mask[i]);
    }
    ffdn_block_n16_free(&e);
}

void reference_engine(Input& input) {
    ffdn_n16 f;
    int32_t delays[BRISEL_LINES];
    uint32_t sizes[BRISEL_LINES];
    any_lines(input, delays, sizes);
    const bool ready = ffdn_n16_init(&f, delays, reinterpret_cast<int32_t*>(sizes),
                                     input.integer(0, 50000), input.real(0.0f, 5.0f)) == 0;
    for (int calls = 0; ready && calls < 30 && !input.empty(); ++calls) {
        uint32_t stages[64];
        float left[BRISEL_LINES], right[BRISEL_LINES], y_l = 0.0f, y_r = 0.0f;
        const int32_t K = input.integer(0, 3);
        switch (input.below(8)) {
        case 0: {
            const auto* given = reinterpret_cast<const int32_t*>(any_stages(input, stages));
            ffdn_n16_set_cascade(&f, K, given, input.integer(0, 50000), input.real(0.0f, 5.0f));
            break;
        }
        case 1:
            ffdn_n16_set_vfm(&f, static_cast<uint32_t>(K), input.bits<uint64_t>(),
                             input.integer(0, 50000), input.real(0.01f, 1.0f),
                             input.real(0.0f, 5.0f));
            break;
        case 2: {
            const auto* given = reinterpret_cast<const int32_t*>(any_stages(input, stages));
            ffdn_n16_set_post_delays(&f, given, input.integer(0, 50000), input.real(0.0f, 5.0f));
            break;
        }
        case 3:
            ffdn_n16_set_two_band_t60(&f, input.integer(0, 50000), input.real(0.0f, 5.0f),
                                      input.real(0.0f, 5.0f));
            break;
        case 4: {
            const float* l = any_gains(input, left);
            const float* r = any_gains(input, right);
            ffdn_n16_set_stereo_outputs(&f, l, r, 0.0f, input.real(-1.0f, 1.0f));
            ffdn_n16_set_stereo_inputs(&f, r, l);
            break;
        }
        case 5:
            ffdn_n16_clear_cascade(&f);
            FUZZ_REQUIRE(!(ffdn_n16_state_energy(&f) < 0.0));
            break;
        default:
            for (uint32_t n = input.bits<uint8_t>(); n > 0; --n) {
                const float x = input.real(-1.0f, 1.0f);
                ffdn_n16_process(&f, x);
                ffdn_n16_process_stereo(&f, &y_l, &y_r, x);
                ffdn_n16_process_stereo_in(&f, &y_l, &y_r, x, -x);
            }
        }
    }
    ffdn_n16_free(&f); // also after a refused init, which may keep some lines
}

void early_reflections(Input& input) {
    ffdn_er er;
    const int32_t longest = std::min(input.integer(1, 600), 5000);
    const int32_t rate = input.integer(1, 50000);
    float size = input.real(0.0f, 1.0f);
    if (double{size} * rate > 1e6) size = 1.0e5f / static_cast<float>(rate); // memory, again
    if (ffdn_er_init(&er, input.integer(3, 25), longest, std::min(rate, 1000000),
                     input.bits<uint64_t>(), size) != 0)
        return;
    for (int calls = 0; calls < 10 && !input.empty(); ++calls) {
        const int32_t n = input.integer(0, 601);
        Buffers b(n, longest, input);
        const int32_t status = ffdn_er_process_stereo(&er, b.in_l.data(), b.out_l.data(),
                                                      input.below(8) ? b.out_r.data() : nullptr, n);
        if (status != 0) FUZZ_REQUIRE(!b.written() || b.out_l.empty());
        FUZZ_REQUIRE(er.write_pos >= 0 && er.write_pos < er.ring_len);
    }
    ffdn_er_free(&er);
}

void eq(Input& input) {
    ffdn_eq filter;
    if (ffdn_eq_init(&filter, input.integer(0, 50000), input.real(0.0f, 3000.0f),
                     input.real(0.0f, 9000.0f)) != 0)
        return;
    for (int calls = 0; calls < 10 && !input.empty(); ++calls) {
        ffdn_eq_set_gains(&filter, input.real(-30.0f, 30.0f), input.real(-30.0f, 30.0f));
        const int32_t n = input.integer(-1, 300);
        if (n > 5000) continue;
        Buffers b(n, 5000, input);
        ffdn_eq_process_stereo(&filter, b.in_l.data(), b.in_r.data(), n);
    }
}

void design_data(Input& input) {
    // Up to six stages are generated, though no engine takes more than three.
    const int32_t K = input.integer(-1, 6);
    if (K > 6) return;
    std::vector<int32_t> stages(static_cast<size_t>(std::max(K, 0)) * BRISEL_LINES + 1);
    ffdn_n16_default_cascade_params(K, stages.data());
    ffdn_n16_default_vfm_params(K, input.bits<uint64_t>(), stages.data(), input.real(0.0f, 1.0f));
    for (size_t k = 0; K > 0 && k + 1 < stages.size(); ++k) FUZZ_REQUIRE(stages[k] >= 0);

    uint32_t lines[64], sizes[BRISEL_LINES];
    int32_t delays[BRISEL_LINES];
    any_lines(input, delays, sizes);
    const uint64_t floats = delay_lines_init(lines, sizes, reinterpret_cast<uint32_t*>(delays));
    if (floats > 0 && floats < 100000) {
        std::vector<float> ring(floats);
        float frame[BRISEL_LINES] = {1.0f};
        for (int t = 0; t < 20; ++t) fdn_delay_stage_ref_n16(ring.data(), lines, frame, frame);
    }
    std::vector<float> x(size_t{1} << input.below(8));
    fuzz::fill(x.data(), x.size(), input);
    fwht_ref(x.data(), static_cast<int32_t>(x.size()));
    fwht_ref(x.data(), -1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    constexpr void (*kParts[])(Input&) = {reverb,       reverb,           block_engine,
                                          block_engine, reference_engine, early_reflections,
                                          eq,           design_data};
    while (!input.empty()) kParts[input.below(8)](input);
    return 0;
}
