// The layout of every public record: other programs declare these records themselves, in other languages too,
// so names, order and types of the fields are part of the interface. By the rules of the x86-64 ABI they give
// the places.
#include <cstddef>
#include <type_traits>

#include <gtest/gtest.h>

#include "brisel/ffdn_defaults_n16.h"
#include "brisel/ffdn_ref_n16.h"
#include "brisel/reverb.h"

namespace {

struct Field {
    const char* name;
    bool right_type;
    size_t offset, size, alignment;
};

// Each field stands at the first place behind the one before it that its alignment allows: none is left out.
template <typename Record>
void expect_layout(std::initializer_list<Field> fields) {
    EXPECT_TRUE(std::is_standard_layout_v<Record> && std::is_trivial_v<Record>);
    size_t end = 0;
    const auto aligned = [&end](size_t to) { return (end + to - 1) / to * to; };
    for (const Field& f : fields) {
        EXPECT_TRUE(f.right_type) << f.name;
        EXPECT_EQ(f.offset, aligned(f.alignment)) << f.name;
        end = f.offset + f.size;
    }
    EXPECT_EQ(sizeof(Record), aligned(alignof(Record))) << (fields.end() - 1)->name;
}

#define AT(type, field)                                                                            \
    {                                                                                              \
#field, std::is_same_v < decltype(R::field), type>, offsetof(R, field), sizeof(type),      \
            alignof(type)                                                                          \
    }

TEST(RecordLayout, IsTheOneThatOtherProgramsDeclare) {
    {
        using R = ffdn_n16_params;
        expect_layout<R>({AT(int32_t[16], delays), AT(int32_t[16], buffer_sizes)});
    }
    {
        using R = ffdn_n16_post_params;
        expect_layout<R>({AT(int32_t[16], post_delays)});
    }
    {
        using R = ffdn_n16_cascade_params;
        expect_layout<R>({AT(int32_t[3][16], stage_delays)});
    }
    {
        using R = ffdn_n16_vfm_params;
        expect_layout<R>({AT(int32_t[3][16], stage_delays)});
    }
    {
        using R = ffdn_n16_stereo_gains;
        expect_layout<R>({AT(float[16], left), AT(float[16], right)});
    }
    {
        using R = ffdn_block_stage;
        expect_layout<R>({AT(uint32_t[16], delays), AT(uint32_t, size), AT(uint32_t, mask),
                          AT(uint32_t, wpos), AT(float*, ring)});
    }
    {
        using R = ffdn_block_n16;
        expect_layout<R>({AT(uint32_t[16], line_offset),
                          AT(uint32_t[16], line_mask),
                          AT(uint32_t[16], line_delay),
                          AT(uint32_t[16], line_wpos),
                          AT(float*, ring),
                          AT(uint64_t, ring_len),
                          AT(float[16], decay_gain),
                          AT(float[16], in_gain),
                          AT(float[16], out_gain),
                          AT(float, direct_gain),
                          AT(float*, tap_block),
                          AT(float*, work_block),
                          AT(int32_t, block_size),
                          AT(int32_t, stage_count),
                          AT(ffdn_block_stage[3], stages),
                          AT(float[16], shelf_b0),
                          AT(float[16], shelf_a1),
                          AT(float[16], shelf_state),
                          AT(uint32_t, two_band),
                          AT(float[16], out_left),
                          AT(float[16], out_right),
                          AT(float, direct_left),
                          AT(float, direct_right),
                          AT(uint32_t, stereo_out_set),
                          AT(uint32_t[16], mod_base_delay),
                          AT(float[16], mod_phase),
                          AT(float[16], mod_inc),
                          AT(int32_t, mod_depth),
                          AT(uint32_t, mod_enabled),
                          AT(float[16], in_left),
                          AT(float[16], in_right),
                          AT(uint32_t, stereo_in_set)});
    }
    {
        using R = ffdn_er;
        expect_layout<R>({AT(int32_t, n_taps), AT(int32_t[24], delays_l), AT(int32_t[24], delays_r),
                          AT(float[24], gains_l), AT(float[24], gains_r), AT(float*, ring),
                          AT(int32_t, ring_len), AT(int32_t, ring_mask), AT(int32_t, write_pos),
                          AT(int32_t, longest_tap), AT(int32_t, max_frames)});
    }
    {
        using R = ffdn_eq;
        expect_layout<R>({AT(float[5], low), AT(float[5], high), AT(float[8], state),
                          AT(int32_t, sample_rate), AT(float, low_hz), AT(float, high_hz),
                          AT(float, gain_low_db), AT(float, gain_high_db), AT(uint32_t, active)});
    }
    {
        using R = qv_reverb_params;
        expect_layout<R>({AT(float, size), AT(float, t60), AT(int32_t, cascade_stages),
                          AT(float, t60_high), AT(float, damp), AT(float, mix), AT(float, width),
                          AT(uint32_t, modulate), AT(uint32_t, er_enable), AT(float, er_size),
                          AT(float, er_level), AT(float, eq_low_db), AT(float, eq_high_db)});
    }
    {
        using R = qv_reverb;
        expect_layout<R>({AT(ffdn_block_n16, engine), AT(ffdn_er, er), AT(ffdn_eq, eq),
                          AT(qv_reverb_params, params), AT(int32_t, sample_rate),
                          AT(int32_t, max_frames), AT(int32_t, longest_delay),
                          AT(uint32_t, engine_ready), AT(uint32_t, er_active),
                          AT(uint32_t, eq_ready), AT(float*, buf_wet_l), AT(float*, buf_wet_r),
                          AT(float*, buf_er_in), AT(float*, buf_er_l), AT(float*, buf_er_r),
                          AT(float*, buf_aux), AT(float*, buf_in_l), AT(float*, buf_in_r)});
    }
    {
        using R = ffdn_n16_stage;
        expect_layout<R>({AT(int32_t[16], stage_delay), AT(int32_t, size), AT(int32_t, mask),
                          AT(int32_t, wpos), AT(float*, ring)});
    }
    {
        using R = ffdn_n16;
        expect_layout<R>(
            {AT(int32_t[16], line_delay), AT(int32_t[16], line_size),    AT(int32_t[16], line_mask),
             AT(int32_t[16], line_wpos),  AT(float* [16], line_buf),     AT(float[16], in_gain),
             AT(float[16], out_gain),     AT(float, direct_gain),        AT(float[16], decay_gain),
             AT(int32_t, stage_count),    AT(ffdn_n16_stage[3], stages), AT(float[16], shelf_b0),
             AT(float[16], shelf_a1),     AT(float[16], shelf_state),    AT(int32_t, two_band),
             AT(float[16], out_left),     AT(float[16], out_right),      AT(float, direct_left),
             AT(float, direct_right),     AT(int32_t, stereo_out_set),   AT(float[16], in_left),
             AT(float[16], in_right),     AT(int32_t, stereo_in_set)});
    }
}

} // namespace
