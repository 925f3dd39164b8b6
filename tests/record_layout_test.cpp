// The layout of every public record: other programs declare these records themselves, in other
// languages too, so names, order, types and places of the fields are part of the interface. The
// table is written out from the order and types of the fields by the rules of the x86-64 ABI: a
// field stands at the next multiple of its alignment, and a record's size is a multiple of its
// largest one.

#include <brisel/ffdn_defaults_n16.h>
#include <brisel/ffdn_ref_n16.h>
#include <brisel/reverb.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

// A record, without a field name, or one of its fields. `figure` is a record's alignment or a
// field's offset.
struct Row {
    const char* record;
    const char* field;
    bool right_kind;
    size_t alignment;
    size_t size, expected_size;
    size_t figure, expected_figure;
};

// RECORD(record, bytes, alignment) and FIELD(record, field, type, offset, bytes).
// clang-format off
#define RECORD(record, size, alignment)                                                            \
    {#record, nullptr, std::is_standard_layout_v<record> && std::is_trivial_v<record>,             \
     alignof(record), sizeof(record), size, alignof(record), alignment}
#define FIELD(record, field, type, offset, size)                                                   \
    {#record, #field, std::is_same_v<decltype(record::field), type>,                               \
     alignof(decltype(record::field)), sizeof(record::field), size, offsetof(record, field), offset}
// clang-format on

constexpr Row kTable[] = {
    RECORD(ffdn_n16_params, 128, 4),
    FIELD(ffdn_n16_params, delays, int32_t[16], 0, 64),
    FIELD(ffdn_n16_params, buffer_sizes, int32_t[16], 64, 64),
    RECORD(ffdn_n16_post_params, 64, 4),
    FIELD(ffdn_n16_post_params, post_delays, int32_t[16], 0, 64),
    RECORD(ffdn_n16_cascade_params, 192, 4),
    FIELD(ffdn_n16_cascade_params, stage_delays, int32_t[3][16], 0, 192),
    RECORD(ffdn_n16_vfm_params, 192, 4),
    FIELD(ffdn_n16_vfm_params, stage_delays, int32_t[3][16], 0, 192),
    RECORD(ffdn_n16_stereo_gains, 128, 4),
    FIELD(ffdn_n16_stereo_gains, left, float[16], 0, 64),
    FIELD(ffdn_n16_stereo_gains, right, float[16], 64, 64),
    RECORD(ffdn_block_stage, 88, 8),
    FIELD(ffdn_block_stage, delays, uint32_t[16], 0, 64),
    FIELD(ffdn_block_stage, size, uint32_t, 64, 4),
    FIELD(ffdn_block_stage, mask, uint32_t, 68, 4),
    FIELD(ffdn_block_stage, wpos, uint32_t, 72, 4),
    FIELD(ffdn_block_stage, ring, float*, 80, 8),
    RECORD(ffdn_block_n16, 1432, 8),
    FIELD(ffdn_block_n16, line_offset, uint32_t[16], 0, 64),
    FIELD(ffdn_block_n16, line_mask, uint32_t[16], 64, 64),
    FIELD(ffdn_block_n16, line_delay, uint32_t[16], 128, 64),
    FIELD(ffdn_block_n16, line_wpos, uint32_t[16], 192, 64),
    FIELD(ffdn_block_n16, ring, float*, 256, 8),
    FIELD(ffdn_block_n16, ring_len, uint64_t, 264, 8),
    FIELD(ffdn_block_n16, decay_gain, float[16], 272, 64),
    FIELD(ffdn_block_n16, in_gain, float[16], 336, 64),
    FIELD(ffdn_block_n16, out_gain, float[16], 400, 64),
    FIELD(ffdn_block_n16, direct_gain, float, 464, 4),
    FIELD(ffdn_block_n16, tap_block, float*, 472, 8),
    FIELD(ffdn_block_n16, work_block, float*, 480, 8),
    FIELD(ffdn_block_n16, block_size, int32_t, 488, 4),
    FIELD(ffdn_block_n16, stage_count, int32_t, 492, 4),
    FIELD(ffdn_block_n16, stages, ffdn_block_stage[3], 496, 264),
    FIELD(ffdn_block_n16, shelf_b0, float[16], 760, 64),
    FIELD(ffdn_block_n16, shelf_a1, float[16], 824, 64),
    FIELD(ffdn_block_n16, shelf_state, float[16], 888, 64),
    FIELD(ffdn_block_n16, two_band, uint32_t, 952, 4),
    FIELD(ffdn_block_n16, out_left, float[16], 956, 64),
    FIELD(ffdn_block_n16, out_right, float[16], 1020, 64),
    FIELD(ffdn_block_n16, direct_left, float, 1084, 4),
    FIELD(ffdn_block_n16, direct_right, float, 1088, 4),
    FIELD(ffdn_block_n16, stereo_out_set, uint32_t, 1092, 4),
    FIELD(ffdn_block_n16, mod_base_delay, uint32_t[16], 1096, 64),
    FIELD(ffdn_block_n16, mod_phase, float[16], 1160, 64),
    FIELD(ffdn_block_n16, mod_inc, float[16], 1224, 64),
    FIELD(ffdn_block_n16, mod_depth, int32_t, 1288, 4),
    FIELD(ffdn_block_n16, mod_enabled, uint32_t, 1292, 4),
    FIELD(ffdn_block_n16, in_left, float[16], 1296, 64),
    FIELD(ffdn_block_n16, in_right, float[16], 1360, 64),
    FIELD(ffdn_block_n16, stereo_in_set, uint32_t, 1424, 4),
    RECORD(ffdn_er, 424, 8),
    FIELD(ffdn_er, n_taps, int32_t, 0, 4),
    FIELD(ffdn_er, delays_l, int32_t[24], 4, 96),
    FIELD(ffdn_er, delays_r, int32_t[24], 100, 96),
    FIELD(ffdn_er, gains_l, float[24], 196, 96),
    FIELD(ffdn_er, gains_r, float[24], 292, 96),
    FIELD(ffdn_er, ring, float*, 392, 8),
    FIELD(ffdn_er, ring_len, int32_t, 400, 4),
    FIELD(ffdn_er, ring_mask, int32_t, 404, 4),
    FIELD(ffdn_er, write_pos, int32_t, 408, 4),
    FIELD(ffdn_er, longest_tap, int32_t, 412, 4),
    FIELD(ffdn_er, max_frames, int32_t, 416, 4),
    RECORD(ffdn_eq, 96, 4),
    FIELD(ffdn_eq, low, float[5], 0, 20),
    FIELD(ffdn_eq, high, float[5], 20, 20),
    FIELD(ffdn_eq, state, float[8], 40, 32),
    FIELD(ffdn_eq, sample_rate, int32_t, 72, 4),
    FIELD(ffdn_eq, low_hz, float, 76, 4),
    FIELD(ffdn_eq, high_hz, float, 80, 4),
    FIELD(ffdn_eq, gain_low_db, float, 84, 4),
    FIELD(ffdn_eq, gain_high_db, float, 88, 4),
    FIELD(ffdn_eq, active, uint32_t, 92, 4),
    RECORD(qv_reverb_params, 52, 4),
    FIELD(qv_reverb_params, size, float, 0, 4),
    FIELD(qv_reverb_params, t60, float, 4, 4),
    FIELD(qv_reverb_params, cascade_stages, int32_t, 8, 4),
    FIELD(qv_reverb_params, t60_high, float, 12, 4),
    FIELD(qv_reverb_params, damp, float, 16, 4),
    FIELD(qv_reverb_params, mix, float, 20, 4),
    FIELD(qv_reverb_params, width, float, 24, 4),
    FIELD(qv_reverb_params, modulate, uint32_t, 28, 4),
    FIELD(qv_reverb_params, er_enable, uint32_t, 32, 4),
    FIELD(qv_reverb_params, er_size, float, 36, 4),
    FIELD(qv_reverb_params, er_level, float, 40, 4),
    FIELD(qv_reverb_params, eq_low_db, float, 44, 4),
    FIELD(qv_reverb_params, eq_high_db, float, 48, 4),
    RECORD(qv_reverb, 2096, 8),
    FIELD(qv_reverb, engine, ffdn_block_n16, 0, 1432),
    FIELD(qv_reverb, er, ffdn_er, 1432, 424),
    FIELD(qv_reverb, eq, ffdn_eq, 1856, 96),
    FIELD(qv_reverb, params, qv_reverb_params, 1952, 52),
    FIELD(qv_reverb, sample_rate, int32_t, 2004, 4),
    FIELD(qv_reverb, max_frames, int32_t, 2008, 4),
    FIELD(qv_reverb, longest_delay, int32_t, 2012, 4),
    FIELD(qv_reverb, engine_ready, uint32_t, 2016, 4),
    FIELD(qv_reverb, er_active, uint32_t, 2020, 4),
    FIELD(qv_reverb, eq_ready, uint32_t, 2024, 4),
    FIELD(qv_reverb, buf_wet_l, float*, 2032, 8),
    FIELD(qv_reverb, buf_wet_r, float*, 2040, 8),
    FIELD(qv_reverb, buf_er_in, float*, 2048, 8),
    FIELD(qv_reverb, buf_er_l, float*, 2056, 8),
    FIELD(qv_reverb, buf_er_r, float*, 2064, 8),
    FIELD(qv_reverb, buf_aux, float*, 2072, 8),
    FIELD(qv_reverb, buf_in_l, float*, 2080, 8),
    FIELD(qv_reverb, buf_in_r, float*, 2088, 8),
    RECORD(ffdn_n16_stage, 88, 8),
    FIELD(ffdn_n16_stage, stage_delay, int32_t[16], 0, 64),
    FIELD(ffdn_n16_stage, size, int32_t, 64, 4),
    FIELD(ffdn_n16_stage, mask, int32_t, 68, 4),
    FIELD(ffdn_n16_stage, wpos, int32_t, 72, 4),
    FIELD(ffdn_n16_stage, ring, float*, 80, 8),
    RECORD(ffdn_n16, 1320, 8),
    FIELD(ffdn_n16, line_delay, int32_t[16], 0, 64),
    FIELD(ffdn_n16, line_size, int32_t[16], 64, 64),
    FIELD(ffdn_n16, line_mask, int32_t[16], 128, 64),
    FIELD(ffdn_n16, line_wpos, int32_t[16], 192, 64),
    FIELD(ffdn_n16, line_buf, float* [16], 256, 128),
    FIELD(ffdn_n16, in_gain, float[16], 384, 64),
    FIELD(ffdn_n16, out_gain, float[16], 448, 64),
    FIELD(ffdn_n16, direct_gain, float, 512, 4),
    FIELD(ffdn_n16, decay_gain, float[16], 516, 64),
    FIELD(ffdn_n16, stage_count, int32_t, 580, 4),
    FIELD(ffdn_n16, stages, ffdn_n16_stage[3], 584, 264),
    FIELD(ffdn_n16, shelf_b0, float[16], 848, 64),
    FIELD(ffdn_n16, shelf_a1, float[16], 912, 64),
    FIELD(ffdn_n16, shelf_state, float[16], 976, 64),
    FIELD(ffdn_n16, two_band, int32_t, 1040, 4),
    FIELD(ffdn_n16, out_left, float[16], 1044, 64),
    FIELD(ffdn_n16, out_right, float[16], 1108, 64),
    FIELD(ffdn_n16, direct_left, float, 1172, 4),
    FIELD(ffdn_n16, direct_right, float, 1176, 4),
    FIELD(ffdn_n16, stereo_out_set, int32_t, 1180, 4),
    FIELD(ffdn_n16, in_left, float[16], 1184, 64),
    FIELD(ffdn_n16, in_right, float[16], 1248, 64),
    FIELD(ffdn_n16, stereo_in_set, int32_t, 1312, 4),
};

size_t aligned(size_t offset, size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

// Prints every record and field, and compares. Each field stands at the first place behind its
// neighbour in the table that its alignment allows: the table leaves none out.
TEST(RecordLayout, IsTheOneOfTheTable) {
    const Row* record = nullptr;
    size_t end = 0;
    const auto close = [&] {
        if (record == nullptr) return;
        EXPECT_EQ(record->size, aligned(end, record->alignment)) << record->record;
    };
    for (const Row& row : kTable) {
        const std::string name = row.field ? std::string(row.record) + "." + row.field : row.record;
        if (row.field) {
            std::printf("  %5zu %5zu  %s\n", row.figure, row.size, row.field);
            EXPECT_STREQ(row.record, record->record);
            EXPECT_EQ(row.figure, aligned(end, row.alignment)) << name;
            end = row.figure + row.size;
        } else {
            std::printf("%s: %zu bytes, aligned to %zu\n", row.record, row.size, row.figure);
            close();
            record = &row;
            end = 0;
        }
        EXPECT_TRUE(row.right_kind) << name;
        EXPECT_EQ(row.size, row.expected_size) << name;
        EXPECT_EQ(row.figure, row.expected_figure) << name;
    }
    close();
}

} // namespace
