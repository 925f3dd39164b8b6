/* The export macro and the words that every header of the engine API uses.
 *
 * Thread tags. Each function's comment carries one:
 *   [main-thread]   may allocate, free and take its time; never on the audio thread
 *   [audio-thread]  allocates nothing, locks nothing, makes no system call
 *   [any-thread]    pure: touches only what its arguments point to, never blocks
 * No function may run concurrently with another one on the same record. Different records are
 * independent: the library keeps no mutable data of its own.
 *
 * Statuses. A function that can refuse returns int32_t: 0 for success, -1 for a refusal. Nothing is
 * printed, nothing is thrown.
 *
 * Layout of multi-line blocks. A block of the 16 delay lines over n frames is line-major: frame t
 * of line i is the float at i * n + t.
 */
#ifndef BRISEL_EXPORT_H
#define BRISEL_EXPORT_H

#include <stdint.h>

#ifdef __cplusplus
#define BRISEL_API extern "C" __attribute__((visibility("default")))
#else
#define BRISEL_API __attribute__((visibility("default")))
#endif

/* Every network has exactly this many delay lines (the n16 in the names). */
#define BRISEL_LINES 16

/* Most stages that the cascade of a feedback matrix holds. */
#define BRISEL_MAX_STAGES 3

/* Longest delay of one line in one cascade stage, in samples. */
#define BRISEL_MAX_STAGE_DELAY 65536

#endif
