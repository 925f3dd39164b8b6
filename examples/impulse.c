/* Renders the impulse response of the reverb at 48 kHz, as text: one line a frame, left and right.
 *
 * cc impulse.c $(pkg-config --cflags --libs brisel) -o impulse && ./impulse > response.txt
 */
#include <brisel/reverb.h>
#include <stdio.h>

enum { RATE = 48000, BLOCK = 1024, TAIL = 10 * RATE };

static float tail_left[TAIL], tail_right[TAIL];

static void print_frames(const float* left, const float* right, int32_t frames) {
    for (int32_t i = 0; i < frames; ++i) printf("%.9g %.9g\n", left[i], right[i]);
}

int main(void) {
    if (!(qv_dsp_cpu_features() & 1)) {
        fprintf(stderr, "impulse: this processor has no AVX2\n");
        return 1;
    }
    qv_reverb* reverb = qv_reverb_create(RATE, BLOCK);
    if (!reverb) return 1;

    qv_reverb_params params = reverb->params; /* the settings in force, here the defaults */
    params.t60 = 3.5f;                        /* seconds */
    params.mix = 1.0f;                        /* wet only */
    if (qv_reverb_set(reverb, &params) != 0) {
        fprintf(stderr, "impulse: settings refused\n");
        qv_reverb_destroy(reverb);
        return 1;
    }

    float left[BLOCK] = {1.0f}, right[BLOCK] = {1.0f};
    qv_reverb_process(reverb, left, right, left, right, BLOCK); /* in place */
    int32_t frames = qv_reverb_flush(reverb, tail_left, tail_right, TAIL);

    print_frames(left, right, BLOCK);
    print_frames(tail_left, tail_right, frames);
    qv_reverb_destroy(reverb);
    return 0;
}
