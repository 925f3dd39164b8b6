/* Brisel Live in programs: a stereo reverb that never stops, whatever is turned. Blocks may have
 * any length, there is no latency, and the output is the same, bit for bit, however the signal is
 * cut into blocks.
 *
 *   #include <brisel/live.h>
 *   #include <stdio.h>
 *
 *   int main(void) {
 *       brisel_live* reverb;
 *       brisel_live_status status = brisel_live_create(&reverb);
 *       if (!status) status = brisel_live_prepare(reverb, 44100.0, 441);
 *       if (!status) status = brisel_live_load_preset(reverb, "Vocal Plate");
 *       if (!status) status = brisel_live_set_by_key(reverb, "mix", 1.0);
 *       float left[441] = {1.0f}, right[441] = {1.0f};
 *       const brisel_live_parameter* decay = brisel_live_parameter_by_key("decay");
 *       const brisel_live_event longer = {100, decay->id, 4.5}; // at the hundredth frame: 4.5 s
 *       for (int block = 0; block < 100 && !status; ++block)    // in place
 *           status = brisel_live_process(reverb, left, right, left, right, 441, &longer, 1);
 *       char text[BRISEL_LIVE_LONGEST_VALUE];
 *       if (!status) status = brisel_live_value_to_text(decay->id, 4.5, text, sizeof text);
 *       if (!status) printf("Decay %s\n", text);
 *       else fprintf(stderr, "%s\n", brisel_live_strerror(status));
 *       brisel_live_destroy(reverb);
 *       return status != BRISEL_LIVE_OK;
 *   }
 *
 * Statuses. A call that can refuse returns a brisel_live_status; one that is not BRISEL_LIVE_OK
 * names the cause, and where nothing else is said, nothing has changed. A null pointer is refused,
 * unless its comment gives it a meaning. Nothing is printed, nothing is thrown.
 *
 * Threads. The tags are those of export.h. Values, presets, tempo, tail and meters are [any-thread]
 * and may be called while another thread renders on the same object: the latest value wins. Objects
 * are independent of each other.
 *
 * Time. The reverb has a clock of its own in frames, and everything that changes starts to change
 * at its multiples of eight: a value acts up to seven frames late. Values glide; only
 * brisel_live_reset cuts.
 *
 * Values are in base units: seconds, decibels, hertz, shares 0 .. 1 (not per cent), numbers of
 * steps.
 *
 * The processor must have AVX2 and FMA: brisel_live_create looks. What does not take an object
 * works on any x86-64 processor.
 */
#ifndef BRISEL_LIVE_H
#define BRISEL_LIVE_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"

typedef enum brisel_live_status {
    BRISEL_LIVE_OK = 0,
    BRISEL_LIVE_BAD_ARGUMENT,      /* a null pointer where something has to be */
    BRISEL_LIVE_BAD_RATE,          /* no sample rate from 1000 to 768000 Hz */
    BRISEL_LIVE_BAD_BLOCK,         /* no longest block from 1 to 65536 frames */
    BRISEL_LIVE_OUT_OF_MEMORY,     /* memory has run out */
    BRISEL_LIVE_NOT_PREPARED,      /* brisel_live_prepare has to come first */
    BRISEL_LIVE_UNKNOWN_PARAMETER, /* no parameter of that id or key */
    BRISEL_LIVE_BAD_VALUE,         /* not a finite number within the parameter's range */
    BRISEL_LIVE_BAD_TEXT,          /* a text that stands for no value, or is no preset */
    BRISEL_LIVE_UNKNOWN_PRESET,    /* no preset of that name or key */
    BRISEL_LIVE_TEXT_TOO_LONG,     /* the text does not fit into the buffer */
    BRISEL_LIVE_UNSUPPORTED_CPU    /* the processor has no AVX2 or no FMA */
} brisel_live_status;

/* What a status means, without a full stop: "the processor has no AVX2 or no FMA". For a number
 * that is no status, "unknown status". Static storage. [any-thread] */
BRISEL_API const char* brisel_live_strerror(brisel_live_status status);

/* A reverb; what it holds is its own affair. */
typedef struct brisel_live brisel_live;

/* Makes a reverb with the default values, not prepared yet.
 *   live     takes the object, owned by the caller until brisel_live_destroy; null on a refusal
 * Refuses   BAD_ARGUMENT, UNSUPPORTED_CPU, OUT_OF_MEMORY.
 * Thread    [main-thread]. */
BRISEL_API brisel_live_status brisel_live_create(brisel_live** live);

/* Frees the object; null is ignored. [main-thread], while nothing else uses it */
BRISEL_API void brisel_live_destroy(brisel_live* live);

/* Takes the memory that any setting at this rate needs, silent. May be called again.
 *   rate           Hz, 1000 .. 768000
 *   longest_block  frames, 1 .. 65536: the longest block to be expected. A longer one is rendered
 *                  all the same
 * Refuses   BAD_ARGUMENT, BAD_RATE, BAD_BLOCK; OUT_OF_MEMORY, and then the object is not prepared.
 * Thread    [main-thread], while nothing renders. */
BRISEL_API brisel_live_status brisel_live_prepare(brisel_live* live, double rate,
                                                  uint32_t longest_block);

/* Silence at once, with the values in force; none of them glides any more. Nothing happens to null
 * or to an object that is not prepared. [audio-thread] */
BRISEL_API void brisel_live_reset(brisel_live* live);

/* ---- parameters ---- */

/* Flags of a parameter. */
#define BRISEL_LIVE_STEPPED 1u     /* whole numbers; `steps` has a word for each */
#define BRISEL_LIVE_LOGARITHMIC 2u /* equal ratios are equal steps to the ear: for knobs */

/* What there is to know of a parameter; all of it in static storage. */
typedef struct brisel_live_parameter {
    uint32_t id;      /* stays the same in all versions; also the index in the list */
    const char* key;  /* "er-size": in presets, in programs */
    const char* name; /* "ER Size": for people */
    const char* unit; /* of its values: "s", "dB", "Hz"; "" of shares, factors and steps */
    double minimum, maximum, default_value;
    uint32_t flags;           /* BRISEL_LIVE_STEPPED, BRISEL_LIVE_LOGARITHMIC */
    uint32_t step_count;      /* 0 unless stepped */
    const char* const* steps; /* words for `minimum`, which is 0, and up; null unless stepped */
} brisel_live_parameter;

/* How many parameters there are; their ids are 0 and up. [any-thread] */
BRISEL_API uint32_t brisel_live_parameter_count(void);

/* A parameter by its index in the list, its id or its key; null when there is none such.
 * [any-thread] */
BRISEL_API const brisel_live_parameter* brisel_live_parameter_at(uint32_t index);
BRISEL_API const brisel_live_parameter* brisel_live_parameter_by_id(uint32_t id);
BRISEL_API const brisel_live_parameter* brisel_live_parameter_by_key(const char* key);

/* Sets a value, from `minimum` to `maximum`; of steps the nearest counts. Prepared or not.
 * Refuses   BAD_ARGUMENT, UNKNOWN_PARAMETER, BAD_VALUE.
 * Thread    [any-thread], also while another renders. */
BRISEL_API brisel_live_status brisel_live_set(brisel_live* live, uint32_t id, double value);
BRISEL_API brisel_live_status brisel_live_set_by_key(brisel_live* live, const char* key,
                                                     double value);

/* Reads the value in force.
 * Refuses   BAD_ARGUMENT, UNKNOWN_PARAMETER.
 * Thread    [any-thread], also while another renders. */
BRISEL_API brisel_live_status brisel_live_get(const brisel_live* live, uint32_t id, double* value);
BRISEL_API brisel_live_status brisel_live_get_by_key(const brisel_live* live, const char* key,
                                                     double* value);

/* Bytes that hold any value's text, the null at its end included. */
#define BRISEL_LIVE_LONGEST_VALUE 32

/* What people read of a value: "40.0 ms", "K = 2", "Off". Independent of the locale.
 *   text  char[size], written, with a null at the end
 * Refuses   BAD_ARGUMENT, UNKNOWN_PARAMETER, BAD_VALUE, TEXT_TOO_LONG.
 * Thread    [any-thread]. */
BRISEL_API brisel_live_status brisel_live_value_to_text(uint32_t id, double value, char* text,
                                                        size_t size);

/* The value of what people type: "40 ms", "0.04s", "35 %", "on", "1/8"; a number alone is in the
 * unit that value_to_text shows. Beyond the parameter's range its nearer end. Independent of the
 * locale.
 * Refuses   BAD_ARGUMENT, UNKNOWN_PARAMETER, BAD_TEXT.
 * Thread    [any-thread]. */
BRISEL_API brisel_live_status brisel_live_text_to_value(uint32_t id, const char* text,
                                                        double* value);

/* ---- audio ---- */

/* A value that is set within a block. */
typedef struct brisel_live_event {
    uint32_t frame; /* of the block, from 0 on */
    uint32_t id;    /* of the parameter */
    double value;   /* as for brisel_live_set */
} brisel_live_event;

/* Renders a block.
 *   in_left, in_right    float[frames], nominal +/-1.0, any alignment. in_right may be null (mono:
 *                        both sides hear in_left), in_left too (silence). NaN and infinities count
 *                        as 0
 *   out_left, out_right  float[frames], written; may be the input buffers, but may not overlap them
 *                        or each other otherwise. out_right may be null (mono: the mean of both
 *                        sides)
 *   frames               any number; with 0, out_left may be null
 *   events               brisel_live_event[event_count], in the order of their frames: one that
 *                        comes before its predecessor acts with it, one behind the block at its
 *                        end. Null if there are none
 * Refuses   BAD_ARGUMENT, with nothing written; NOT_PREPARED, with zeros written.
 *           UNKNOWN_PARAMETER, BAD_VALUE: of the first event that is wrong; such events are left
 *           out, the block is rendered.
 * Thread    [audio-thread]. Flush-to-zero and denormals-are-zero hold during the call, the thread's
 *           control word comes back as it was. */
BRISEL_API brisel_live_status brisel_live_process(brisel_live* live, const float* in_left,
                                                  const float* in_right, float* out_left,
                                                  float* out_right, uint32_t frames,
                                                  const brisel_live_event* events,
                                                  uint32_t event_count);

/* 1 when the last block found and gave nothing but silence, exact zeros, and all that follows will
 * be until there is input: until then it need not be rendered. 0 otherwise, and for null.
 * [any-thread], also while another renders */
BRISEL_API uint32_t brisel_live_asleep(const brisel_live* live);

/* The tempo, for Predelay Sync; before there is one, Predelay holds.
 *   beats_per_minute  quarter notes, 20 .. 999
 * Refuses   BAD_ARGUMENT, BAD_VALUE.
 * Thread    [any-thread], also while another renders: acts from the next block on. */
BRISEL_API brisel_live_status brisel_live_set_tempo(brisel_live* live, double beats_per_minute);

/* How long there is something to hear after the input has stopped, with the values in force: until
 * it has fallen by 90 dB, in frames. UINT64_MAX while frozen; 0 for null and for an object that is
 * not prepared. [any-thread], also while another renders */
BRISEL_API uint64_t brisel_live_tail_frames(const brisel_live* live);

/* Highest magnitudes since the last reading, linear. */
typedef struct brisel_live_meters {
    float input;
    float wet; /* behind tone, levels and ducking, before Mix */
    float output;
    float duck; /* the ducker's gain now, 0 .. 1 */
} brisel_live_meters;

/* Reads the meters, which start anew: for one reader.
 * Refuses   BAD_ARGUMENT.
 * Thread    [any-thread], also while another renders. */
BRISEL_API brisel_live_status brisel_live_read_meters(brisel_live* live,
                                                      brisel_live_meters* meters);

/* ---- presets ---- */

/* How many presets the library brings along, sorted by category, then name. [any-thread] */
BRISEL_API uint32_t brisel_live_preset_count(void);

/* Of a preset: "Vocal Plate"; "Plates"; "plates/vocal-plate", unique and the same in all versions;
 * one line about it. Static storage; null when there is no preset of that index. [any-thread] */
BRISEL_API const char* brisel_live_preset_name(uint32_t index);
BRISEL_API const char* brisel_live_preset_category(uint32_t index);
BRISEL_API const char* brisel_live_preset_key(uint32_t index);
BRISEL_API const char* brisel_live_preset_description(uint32_t index);

/* Sets all values but those of Bypass and Clear, which belong to the moment.
 *   name  a preset's name or key; upper or lower case do not count
 * Refuses   BAD_ARGUMENT, UNKNOWN_PRESET.
 * Thread    [any-thread], also while another renders. */
BRISEL_API brisel_live_status brisel_live_load_preset(brisel_live* live, const char* name);

/* Bytes that hold any preset's text, the null at its end included. */
#define BRISEL_LIVE_LONGEST_PRESET 8193

/* The same from a preset's text, as files hold it: one `key = value` a line, `#` before comments.
 * Parameters that it does not mention take their defaults; unknown keys are passed over, values out
 * of range are clamped.
 * Refuses   BAD_ARGUMENT, BAD_TEXT (no value of a known key, a line of another form, or longer than
 *           8192 bytes).
 * Thread    [any-thread], also while another renders. */
BRISEL_API brisel_live_status brisel_live_load_text(brisel_live* live, const char* text);

/* Writes all values but Bypass and Clear so that brisel_live_load_text gives exactly these.
 *   text  char[size], written, with a null at the end
 * Refuses   BAD_ARGUMENT, TEXT_TOO_LONG.
 * Thread    [any-thread], also while another renders. */
BRISEL_API brisel_live_status brisel_live_save_text(const brisel_live* live, char* text,
                                                    size_t size);

/* The version of the library, such as "0.1.0"; static storage. [any-thread] */
BRISEL_API const char* brisel_live_version(void);

#endif
