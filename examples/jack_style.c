/* A client of a sound server, without the server: blocks of 441 frames, now and then of another,
 * odd length, Decay and Size turned by a window meanwhile, meters for it to show. Here all of them
 * take turns in one thread, and the sound is a click every half second.
 *
 * cc jack_style.c $(pkg-config --cflags --libs brisel-live) -lm -o jack_style && ./jack_style
 */
#include <brisel/live.h>
#include <math.h>
#include <stdio.h>

enum { RATE = 44100, PERIOD = 441 };

/* What the server calls on its audio thread; any number of frames. Returns 0 to go on. */
static int process(uint32_t frames, float* left, float* right, void* argument) {
    return brisel_live_process(argument, left, right, left, right, frames, NULL, 0);
}

/* What a window does when somebody turns its knobs, on the window's thread. */
static brisel_live_status turn(brisel_live* reverb, double seconds) {
    const double swing = sin(6.28 * 0.2 * seconds);
    brisel_live_status status = brisel_live_set_by_key(reverb, "size", 0.05 * pow(4.0, swing));
    if (status == BRISEL_LIVE_OK)
        status = brisel_live_set_by_key(reverb, "decay", 2.0 + 1.5 * swing);
    return status;
}

static brisel_live_status run(brisel_live* reverb) {
    static const uint32_t periods[] = {PERIOD, PERIOD, 13, PERIOD, 997, 1};
    brisel_live_status status = brisel_live_prepare(reverb, RATE, PERIOD);
    if (status == BRISEL_LIVE_OK) status = brisel_live_load_preset(reverb, "Vocal Plate");
    uint32_t second = 0;
    for (uint32_t at = 0, block = 0; at < 5 * RATE && status == BRISEL_LIVE_OK; ++block) {
        const uint32_t frames = periods[block % 6];
        float left[997] = {0}, right[997] = {0};
        for (uint32_t t = 0; t < frames; ++t)
            if ((at + t) % (RATE / 2) == 0) left[t] = right[t] = 1.0f;
        status = process(frames, left, right, reverb);
        at += frames;
        if (status == BRISEL_LIVE_OK) status = turn(reverb, (double)at / RATE);
        if (status == BRISEL_LIVE_OK && at / RATE > second) {
            brisel_live_meters meters;
            status = brisel_live_read_meters(reverb, &meters);
            printf("%u s: wet peak %.3f, tail %.2f s\n", ++second, meters.wet,
                   (double)brisel_live_tail_frames(reverb) / RATE);
        }
    }
    return status;
}

int main(void) {
    brisel_live* reverb;
    brisel_live_status status = brisel_live_create(&reverb);
    if (status == BRISEL_LIVE_OK) status = run(reverb);
    if (status != BRISEL_LIVE_OK) fprintf(stderr, "jack_style: %s\n", brisel_live_strerror(status));
    brisel_live_destroy(reverb);
    return status != BRISEL_LIVE_OK;
}
