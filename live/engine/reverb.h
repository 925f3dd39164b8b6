// Brisel Live as one object: a stereo reverb that never stops, whatever is turned, at any block
// length and without latency. It knows no plug-in interface; adapters hand it the host's signals
// and events.
//
//   brisel::live::Reverb reverb;
//   if (!reverb.prepare(48000.0, 1024)) return 1;                      // out of memory
//   const Event longer = {100, kDecay, false, 4.5};                    // 100 frames into the block
//   const float* in[2] = {left, right};
//   float* out[2] = {left, right};                                     // in place
//   reverb.process(in, out, 1024, {&longer, 1}, nullptr);
//
// Time. The reverb has a clock of its own in frames, and everything that changes starts to change
// at its multiples of eight: an event acts up to seven frames late. The output is the same, bit for
// bit, however a host cuts the signal into blocks, events included.
#ifndef BRISEL_LIVE_REVERB_H
#define BRISEL_LIVE_REVERB_H

#include <cstdint>
#include <memory>
#include <span>

#include "live/engine/values.h"

namespace brisel::live {

inline constexpr double kLowestRate = 1000.0, kHighestRate = 768000.0; // Hz
inline constexpr uint32_t kLongestBlock = 65536;                       // frames
inline constexpr double kSlowestTempo = 20.0, kFastestTempo = 999.0;   // beats per minute

enum class Status : uint8_t {
    kRunning, // there was input
    kTail,    // the input is silent, the output is not (or not for long enough)
    kAsleep,  // silence in, exact zeros out: it need not be called until there is input
};

struct Event {
    uint32_t frame;     // within the block
    uint16_t parameter; // id
    bool modulation;    // an offset on the plain value, or the plain value itself
    double value;
};

struct Tempo {
    double beats_per_minute; // quarter notes; what is out of range counts as unknown
};

// Highest magnitudes since the last reading, linear.
struct Meters {
    float input, wet, output; // wet: behind tone, levels and ducking, before Mix
    float duck;               // the ducker's gain now, 0 .. 1
};

class Reverb {
public:
    Reverb();
    ~Reverb();
    Reverb(const Reverb&) = delete;
    Reverb& operator=(const Reverb&) = delete;

    // False when memory ran out as it was made: then there is nothing to do but to destroy it.
    bool exists() const { return state_ != nullptr; }

    // The values in force and the way to change them from outside the audio thread. They live as
    // long as the reverb, prepared or not. [any-thread], call by call as values.h says
    Values& values();
    const Values& values() const;

    // Takes the storage for every setting, silent; may be called again with another rate.
    //   rate           Hz, kLowestRate .. kHighestRate
    //   longest_block  frames, 1 .. kLongestBlock
    // Returns false, and is then not prepared, when an argument is out of range or memory runs out.
    // [main-thread], while nothing processes
    bool prepare(double rate, uint32_t longest_block);

    // Silence at once, at the values in force; nothing glides afterwards. Not prepared: does
    // nothing.
    // [audio-thread]
    void reset();

    // Renders a block.
    //   in      `frames` samples a channel, any alignment. in[1] may be null (mono: both channels
    //           hear in[0]), in[0] too (silence). NaN and infinities count as 0.
    //   out     `frames` samples a channel, written; may be the input buffers. out[1] may be null
    //           (mono: the mean of both sides). Without out[0] nothing happens.
    //   frames  any number, those beyond prepare()'s longest_block included
    //   events  in the order of their frames. One that comes before its predecessor acts with it,
    //           one behind the block at its end; one with an unknown id or a NaN is ignored.
    //   tempo   for Predelay Sync; null or out of range: unknown, and the latest known one stays.
    //           Before there was one, Predelay itself holds
    // Not prepared: zeros. No allocation, lock or system call; flush-to-zero and denormals-are-zero
    // hold during the call, the thread's control word comes back as it was. [audio-thread]
    Status process(const float* const in[2], float* const out[2], uint32_t frames,
                   std::span<const Event> events, const Tempo* tempo);

    // How long there is something to hear after the input has stopped, at the values in force:
    // until it has fallen by 90 dB, in frames. UINT64_MAX while frozen. [any-thread]
    uint64_t tail_frames() const;

    // The peaks since the last call, which starts them anew: for one reader. [any-thread]
    Meters read_meters();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace brisel::live

#endif
