// The layout of every public record: other programs declare these records themselves, in other
// languages too, so names, order, types and places of the fields are part of the interface. The table
// is written out from the order and types of the fields by the rules of the x86-64 ABI: a field stands
// at the next multiple of its alignment, and a record's size is a multiple of its largest one.

#include <brisel/ffdn_defaults_n16.h>
#include <brisel/ffdn_ref_n16.h>
#include <brisel/reverb.h>

#include <cstddef>
#include <cstdio>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Row {
    const char* name;
    bool right_type;
    size_t alignment, offset, size, expected_offset, expected_size;
};

struct Record {
    const char* name;
    size_t size, alignment, expected_size, expected_alignment;
    std::vector<Row> rows;
};

// RECORD opens a record's rows: its size and alignment in bytes. FIELD adds its next field: its place
// and size in bytes.
#define RECORD(record, size, alignment)                                                            \
    static_assert(std::is_standard_layout_v<record> && std::is_trivial_v<record>);                 \
    using R = record;                                                                              \
    Record r = {#record, sizeof(R), alignof(R), size, alignment, {}}
#define FIELD(type, field, offset, size)                                                           \
    r.rows.push_back({#field, std::is_same_v<type, decltype(R::field)>,                            \
                      alignof(decltype(R::field)), offsetof(R, field), sizeof(R::field), offset,   \
                      size})

Record line_params() {
    RECORD(ffdn_n16_params, 128, 4);
    FIELD(int32_t[16], delays, 0, 64);
    FIELD(int32_t[16], buffer_sizes, 64, 64);
    return r;
}

Record post_params() {
    RECORD(ffdn_n16_post_params, 64, 4);
    FIELD(int32_t[16], post_delays, 0, 64);
    return r;
}

Record cascade_params() {
    RECORD(ffdn_n16_cascade_params, 192, 4);
    FIELD(int32_t[3][16], stage_delays, 0, 192);
    return r;
}

Record vfm_params() {
    RECORD(ffdn_n16_vfm_params, 192, 4);
    FIELD(int32_t[3][16], stage_delays, 0, 192);
    return r;
}

Record stereo_gains() {
    RECORD(ffdn_n16_stereo_gains, 128, 4);
    FIELD(float[16], left, 0, 64);
    FIELD(float[16], right, 64, 64);
    return r;
}

Record block_stage() {
    RECORD(ffdn_block_stage, 88, 8);
    FIELD(uint32_t[16], delays, 0, 64);
    FIELD(uint32_t, size, 64, 4);
    FIELD(uint32_t, mask, 68, 4);
    FIELD(uint32_t, wpos, 72, 4);
    FIELD(float*, ring, 80, 8);
    return r;
}

Record block_engine() {
    RECORD(ffdn_block_n16, 1432, 8);
    FIELD(uint32_t[16], line_offset, 0, 64);
    FIELD(uint32_t[16], line_mask, 64, 64);
    FIELD(uint32_t[16], line_delay, 128, 64);
    FIELD(uint32_t[16], line_wpos, 192, 64);
    FIELD(float*, ring, 256, 8);
    FIELD(uint64_t, ring_len, 264, 8);
    FIELD(float[16], decay_gain, 272, 64);
    FIELD(float[16], in_gain, 336, 64);
    FIELD(float[16], out_gain, 400, 64);
    FIELD(float, direct_gain, 464, 4);
    FIELD(float*, tap_block, 472, 8);
    FIELD(float*, work_block, 480, 8);
    FIELD(int32_t, block_size, 488, 4);
    FIELD(int32_t, stage_count, 492, 4);
    FIELD(ffdn_block_stage[3], stages, 496, 264);
    FIELD(float[16], shelf_b0, 760, 64);
    FIELD(float[16], shelf_a1, 824, 64);
    FIELD(float[16], shelf_state, 888, 64);
    FIELD(uint32_t, two_band, 952, 4);
    FIELD(float[16], out_left, 956, 64);
    FIELD(float[16], out_right, 1020, 64);
    FIELD(float, direct_left, 1084, 4);
    FIELD(float, direct_right, 1088, 4);
    FIELD(uint32_t, stereo_out_set, 1092, 4);
    FIELD(uint32_t[16], mod_base_delay, 1096, 64);
    FIELD(float[16], mod_phase, 1160, 64);
    FIELD(float[16], mod_inc, 1224, 64);
    FIELD(int32_t, mod_depth, 1288, 4);
    FIELD(uint32_t, mod_enabled, 1292, 4);
    FIELD(float[16], in_left, 1296, 64);
    FIELD(float[16], in_right, 1360, 64);
    FIELD(uint32_t, stereo_in_set, 1424, 4);
    return r;
}

Record early_reflections() {
    RECORD(ffdn_er, 424, 8);
    FIELD(int32_t, n_taps, 0, 4);
    FIELD(int32_t[24], delays_l, 4, 96);
    FIELD(int32_t[24], delays_r, 100, 96);
    FIELD(float[24], gains_l, 196, 96);
    FIELD(float[24], gains_r, 292, 96);
    FIELD(float*, ring, 392, 8);
    FIELD(int32_t, ring_len, 400, 4);
    FIELD(int32_t, ring_mask, 404, 4);
    FIELD(int32_t, write_pos, 408, 4);
    FIELD(int32_t, longest_tap, 412, 4);
    FIELD(int32_t, max_frames, 416, 4);
    return r;
}

Record equaliser() {
    RECORD(ffdn_eq, 96, 4);
    FIELD(float[5], low, 0, 20);
    FIELD(float[5], high, 20, 20);
    FIELD(float[8], state, 40, 32);
    FIELD(int32_t, sample_rate, 72, 4);
    FIELD(float, low_hz, 76, 4);
    FIELD(float, high_hz, 80, 4);
    FIELD(float, gain_low_db, 84, 4);
    FIELD(float, gain_high_db, 88, 4);
    FIELD(uint32_t, active, 92, 4);
    return r;
}

Record reverb_params() {
    RECORD(qv_reverb_params, 52, 4);
    FIELD(float, size, 0, 4);
    FIELD(float, t60, 4, 4);
    FIELD(int32_t, cascade_stages, 8, 4);
    FIELD(float, t60_high, 12, 4);
    FIELD(float, damp, 16, 4);
    FIELD(float, mix, 20, 4);
    FIELD(float, width, 24, 4);
    FIELD(uint32_t, modulate, 28, 4);
    FIELD(uint32_t, er_enable, 32, 4);
    FIELD(float, er_size, 36, 4);
    FIELD(float, er_level, 40, 4);
    FIELD(float, eq_low_db, 44, 4);
    FIELD(float, eq_high_db, 48, 4);
    return r;
}

Record reverb() {
    RECORD(qv_reverb, 2096, 8);
    FIELD(ffdn_block_n16, engine, 0, 1432);
    FIELD(ffdn_er, er, 1432, 424);
    FIELD(ffdn_eq, eq, 1856, 96);
    FIELD(qv_reverb_params, params, 1952, 52);
    FIELD(int32_t, sample_rate, 2004, 4);
    FIELD(int32_t, max_frames, 2008, 4);
    FIELD(int32_t, longest_delay, 2012, 4);
    FIELD(uint32_t, engine_ready, 2016, 4);
    FIELD(uint32_t, er_active, 2020, 4);
    FIELD(uint32_t, eq_ready, 2024, 4);
    FIELD(float*, buf_wet_l, 2032, 8);
    FIELD(float*, buf_wet_r, 2040, 8);
    FIELD(float*, buf_er_in, 2048, 8);
    FIELD(float*, buf_er_l, 2056, 8);
    FIELD(float*, buf_er_r, 2064, 8);
    FIELD(float*, buf_aux, 2072, 8);
    FIELD(float*, buf_in_l, 2080, 8);
    FIELD(float*, buf_in_r, 2088, 8);
    return r;
}

Record reference_stage() {
    RECORD(ffdn_n16_stage, 88, 8);
    FIELD(int32_t[16], stage_delay, 0, 64);
    FIELD(int32_t, size, 64, 4);
    FIELD(int32_t, mask, 68, 4);
    FIELD(int32_t, wpos, 72, 4);
    FIELD(float*, ring, 80, 8);
    return r;
}

Record reference_engine() {
    RECORD(ffdn_n16, 1320, 8);
    FIELD(int32_t[16], line_delay, 0, 64);
    FIELD(int32_t[16], line_size, 64, 64);
    FIELD(int32_t[16], line_mask, 128, 64);
    FIELD(int32_t[16], line_wpos, 192, 64);
    FIELD(float* [16], line_buf, 256, 128);
    FIELD(float[16], in_gain, 384, 64);
    FIELD(float[16], out_gain, 448, 64);
    FIELD(float, direct_gain, 512, 4);
    FIELD(float[16], decay_gain, 516, 64);
    FIELD(int32_t, stage_count, 580, 4);
    FIELD(ffdn_n16_stage[3], stages, 584, 264);
    FIELD(float[16], shelf_b0, 848, 64);
    FIELD(float[16], shelf_a1, 912, 64);
    FIELD(float[16], shelf_state, 976, 64);
    FIELD(int32_t, two_band, 1040, 4);
    FIELD(float[16], out_left, 1044, 64);
    FIELD(float[16], out_right, 1108, 64);
    FIELD(float, direct_left, 1172, 4);
    FIELD(float, direct_right, 1176, 4);
    FIELD(int32_t, stereo_out_set, 1180, 4);
    FIELD(float[16], in_left, 1184, 64);
    FIELD(float[16], in_right, 1248, 64);
    FIELD(int32_t, stereo_in_set, 1312, 4);
    return r;
}

size_t aligned(size_t offset, size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

// Prints every record and field, and compares. Each field stands at the first place behind its
// neighbour in the table that its alignment allows: the table leaves none out.
TEST(RecordLayout, IsTheOneOfTheTable) {
    for (const Record& r :
         {line_params(), post_params(), cascade_params(), vfm_params(), stereo_gains(),
          block_stage(), block_engine(), early_reflections(), equaliser(), reverb_params(),
          reverb(), reference_stage(), reference_engine()}) {
        std::printf("%s: %zu bytes, aligned to %zu\n", r.name, r.size, r.alignment);
        EXPECT_EQ(r.size, r.expected_size) << r.name;
        EXPECT_EQ(r.alignment, r.expected_alignment) << r.name;
        size_t end = 0;
        for (const Row& row : r.rows) {
            std::printf("  %5zu %5zu  %s\n", row.offset, row.size, row.name);
            EXPECT_TRUE(row.right_type) << r.name << '.' << row.name;
            EXPECT_EQ(row.offset, row.expected_offset) << r.name << '.' << row.name;
            EXPECT_EQ(row.size, row.expected_size) << r.name << '.' << row.name;
            EXPECT_EQ(row.offset, aligned(end, row.alignment)) << r.name << '.' << row.name;
            end = row.offset + row.size;
        }
        EXPECT_EQ(r.size, aligned(end, r.alignment)) << r.name;
    }
}

} // namespace
