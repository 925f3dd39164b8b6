/* The window module of Brisel Live, a shared object of its own beside the plug-ins' audio binaries:
 * they open it with dlopen when a window is asked for, so that they need neither X nor cairo and
 * work where those, or the module, are missing.
 *
 *   void* library = dlopen(".../brisel-live-ui.so", RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
 *   brisel_ui_entry entry = (brisel_ui_entry)dlsym(library, BRISEL_UI_ENTRY);
 *   const brisel_ui_module* module = entry(BRISEL_UI_VERSION);        // null: another version
 *   if (!module || !module->available()) return false;                // no X display
 *   brisel_ui* ui = module->open(&host, parent, scale);
 *   ... module->update(ui) every 33 ms and whenever module->connection(ui) is readable ...
 *   module->close(ui);
 *
 * Embedding. The window speaks the X protocol through xcb, not Xlib. A window inside another
 * program's may lose its parent at any time; an error that follows ends the whole program with
 * Xlib's handlers, which belong to the process, whereas xcb hands it to whoever made the
 * connection. That is also why no toolkit for plug-in windows lies in between: those at hand (pugl,
 * and DGL on top of it) rest on Xlib, install as bare sources under one distribution's path, and
 * leave to us all but their event loop, which is 150 of our lines.
 *
 * All calls, those of the host record included, are [main-thread] and never concurrent; the
 * window starts no thread and shares no lock with the sound. Several windows may be open at
 * once, one a host record. */
#ifndef BRISEL_LIVE_UI_MODULE_H
#define BRISEL_LIVE_UI_MODULE_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Counts up with each change of this header or of the parameter table. */
#define BRISEL_UI_VERSION 1
#define BRISEL_UI_ENTRY "brisel_live_ui"
#define BRISEL_UI_FILE "brisel-live-ui.so"

/* Highest magnitudes since the last call, linear; duck is the ducker's gain now, 0 .. 1. */
typedef struct brisel_ui_meters {
    float input, wet, output, duck;
} brisel_ui_meters;

/* What a person does with a control, in this order: each drag, click, key or preset begins, sets
 * and ends each parameter it changes. */
enum { BRISEL_UI_BEGIN, BRISEL_UI_VALUE, BRISEL_UI_END };

/* The plug-in, seen from its window. Ids are rows of the parameter table, values plain, in base
 * units. The record and what its members point at live until close() has returned. No member is
 * null. */
typedef struct brisel_ui_host {
    void* context; /* first argument of all calls */
    double (*value)(void* context, uint32_t id);
    double (*sounding)(void* context,
                       uint32_t id); /* with the host's modulation, else as value() */
    void (*edit)(void* context, int kind, uint32_t id,
                 double value); /* value: of BRISEL_UI_VALUE */
    void (*meters)(void* context, brisel_ui_meters* meters);
    double (*sample_rate)(void* context); /* Hz; 0 when it is not known */
    uint32_t*
        memory; /* what the window wants to find again when it opens for the next time; 0 at first,
                         need not outlive the plug-in */
} brisel_ui_host;

typedef struct brisel_ui brisel_ui;

typedef struct brisel_ui_module {
    /* Whether there is an X display to open windows on. */
    bool (*available)(void);

    /* A hidden window inside the X window `parent`, of the default size at `scale` (1 is 100 %; 0
     * takes the desktop's own scale). Returns null when there is no display, or no such parent, or
     * memory runs out. */
    brisel_ui* (*open)(const brisel_ui_host* host, uint32_t parent, double scale);
    void (*close)(brisel_ui* ui); /* null is allowed */

    void (*show)(brisel_ui* ui);
    void (*hide)(brisel_ui* ui);

    /* Answers what has happened, takes the host's values and meters, and redraws what they changed.
     * Returns false once the window or its display is gone; close() remains to be called. */
    bool (*update)(brisel_ui* ui);

    /* The file descriptor that becomes readable when there are events. */
    int (*connection)(const brisel_ui* ui);

    /* The X window, and its size in pixels. */
    uint32_t (*window)(const brisel_ui* ui);
    void (*size)(const brisel_ui* ui, uint32_t* width, uint32_t* height);
    void (*resize)(brisel_ui* ui, uint32_t width, uint32_t height);

    /* The size in pixels of a window that is yet to be opened, at `scale` as above; and the largest
     * size within the one given, but not below the smallest, that has the window's proportions. */
    void (*default_size)(double scale, uint32_t* width, uint32_t* height);
    void (*adjust)(uint32_t* width, uint32_t* height);
} brisel_ui_module;

/* The module's one entry; null for a version that is not its own. */
typedef const brisel_ui_module* (*brisel_ui_entry)(uint32_t version);

#ifdef __cplusplus
}
#endif

#endif
