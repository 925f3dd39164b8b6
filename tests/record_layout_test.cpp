// The layout of every public record: other programs declare these records themselves, in other
// languages too, so names, order and types of the fields are part of the interface. By the rules of
// the x86-64 ABI they give the places: a field stands at the next multiple of its alignment.
#include <type_traits>
#include <typeinfo>

#include <gtest/gtest.h>

#include "brisel/ffdn_defaults_n16.h"
#include "brisel/ffdn_ref_n16.h"
#include "brisel/reverb.h"

namespace {

// Goes through a record's fields in their order, those of one type at a time.
template <typename Record>
class Layout {
public:
    ~Layout() {
        EXPECT_TRUE(std::is_standard_layout_v<Record> && std::is_trivial_v<Record>);
        EXPECT_EQ(sizeof(Record), aligned(alignof(Record))) << typeid(Record).name();
    }
    template <typename Type>
    Layout& of(std::initializer_list<Type Record::*> fields) {
        for (const auto field : fields) {
            const auto* from = reinterpret_cast<const char*>(&(record_.*field));
            const auto offset = static_cast<size_t>(from - reinterpret_cast<const char*>(&record_));
            EXPECT_EQ(offset, aligned(alignof(Type))) << typeid(Record).name();
            end_ = offset + sizeof(Type);
        }
        return *this;
    }

private:
    size_t aligned(size_t to) const { return (end_ + to - 1) / to * to; }
    Record record_;
    size_t end_ = 0;
};

} // namespace

TEST(RecordLayout, IsTheOneThatOtherProgramsDeclare) {
    using R0 = ffdn_n16_params;
    Layout<R0>().of<int32_t[16]>({&R0::delays, &R0::buffer_sizes});
    using R1 = ffdn_n16_post_params;
    Layout<R1>().of<int32_t[16]>({&R1::post_delays});
    using R2 = ffdn_n16_cascade_params;
    Layout<R2>().of<int32_t[3][16]>({&R2::stage_delays});
    using R3 = ffdn_n16_vfm_params;
    Layout<R3>().of<int32_t[3][16]>({&R3::stage_delays});
    using R4 = ffdn_n16_stereo_gains;
    Layout<R4>().of<float[16]>({&R4::left, &R4::right});
    using R5 = ffdn_block_stage;
    Layout<R5>()
        .of<uint32_t[16]>({&R5::delays})
        .of<uint32_t>({&R5::size, &R5::mask, &R5::wpos})
        .of<float*>({&R5::ring});
    using R6 = ffdn_block_n16;
    Layout<R6>()
        .of<uint32_t[16]>({&R6::line_offset, &R6::line_mask, &R6::line_delay, &R6::line_wpos})
        .of<float*>({&R6::ring})
        .of<uint64_t>({&R6::ring_len})
        .of<float[16]>({&R6::decay_gain, &R6::in_gain, &R6::out_gain})
        .of<float>({&R6::direct_gain})
        .of<float*>({&R6::tap_block, &R6::work_block})
        .of<int32_t>({&R6::block_size, &R6::stage_count})
        .of<ffdn_block_stage[3]>({&R6::stages})
        .of<float[16]>({&R6::shelf_b0, &R6::shelf_a1, &R6::shelf_state})
        .of<uint32_t>({&R6::two_band})
        .of<float[16]>({&R6::out_left, &R6::out_right})
        .of<float>({&R6::direct_left, &R6::direct_right})
        .of<uint32_t>({&R6::stereo_out_set})
        .of<uint32_t[16]>({&R6::mod_base_delay})
        .of<float[16]>({&R6::mod_phase, &R6::mod_inc})
        .of<int32_t>({&R6::mod_depth})
        .of<uint32_t>({&R6::mod_enabled})
        .of<float[16]>({&R6::in_left, &R6::in_right})
        .of<uint32_t>({&R6::stereo_in_set});
    using R7 = ffdn_er;
    Layout<R7>()
        .of<int32_t>({&R7::n_taps})
        .of<int32_t[24]>({&R7::delays_l, &R7::delays_r})
        .of<float[24]>({&R7::gains_l, &R7::gains_r})
        .of<float*>({&R7::ring})
        .of<int32_t>(
            {&R7::ring_len, &R7::ring_mask, &R7::write_pos, &R7::longest_tap, &R7::max_frames});
    using R8 = ffdn_eq;
    Layout<R8>()
        .of<float[5]>({&R8::low, &R8::high})
        .of<float[8]>({&R8::state})
        .of<int32_t>({&R8::sample_rate})
        .of<float>({&R8::low_hz, &R8::high_hz, &R8::gain_low_db, &R8::gain_high_db})
        .of<uint32_t>({&R8::active});
    using R9 = qv_reverb_params;
    Layout<R9>()
        .of<float>({&R9::size, &R9::t60})
        .of<int32_t>({&R9::cascade_stages})
        .of<float>({&R9::t60_high, &R9::damp, &R9::mix, &R9::width})
        .of<uint32_t>({&R9::modulate, &R9::er_enable})
        .of<float>({&R9::er_size, &R9::er_level, &R9::eq_low_db, &R9::eq_high_db});
    using R10 = qv_reverb;
    Layout<R10>()
        .of<ffdn_block_n16>({&R10::engine})
        .of<ffdn_er>({&R10::er})
        .of<ffdn_eq>({&R10::eq})
        .of<qv_reverb_params>({&R10::params})
        .of<int32_t>({&R10::sample_rate, &R10::max_frames, &R10::longest_delay})
        .of<uint32_t>({&R10::engine_ready, &R10::er_active, &R10::eq_ready})
        .of<float*>({&R10::buf_wet_l, &R10::buf_wet_r, &R10::buf_er_in, &R10::buf_er_l,
                     &R10::buf_er_r, &R10::buf_aux, &R10::buf_in_l, &R10::buf_in_r});
    using R11 = ffdn_n16_stage;
    Layout<R11>()
        .of<int32_t[16]>({&R11::stage_delay})
        .of<int32_t>({&R11::size, &R11::mask, &R11::wpos})
        .of<float*>({&R11::ring});
    using R12 = ffdn_n16;
    Layout<R12>()
        .of<int32_t[16]>({&R12::line_delay, &R12::line_size, &R12::line_mask, &R12::line_wpos})
        .of<float* [16]>({&R12::line_buf})
        .of<float[16]>({&R12::in_gain, &R12::out_gain})
        .of<float>({&R12::direct_gain})
        .of<float[16]>({&R12::decay_gain})
        .of<int32_t>({&R12::stage_count})
        .of<ffdn_n16_stage[3]>({&R12::stages})
        .of<float[16]>({&R12::shelf_b0, &R12::shelf_a1, &R12::shelf_state})
        .of<int32_t>({&R12::two_band})
        .of<float[16]>({&R12::out_left, &R12::out_right})
        .of<float>({&R12::direct_left, &R12::direct_right})
        .of<int32_t>({&R12::stereo_out_set})
        .of<float[16]>({&R12::in_left, &R12::in_right})
        .of<int32_t>({&R12::stereo_in_set});
}
