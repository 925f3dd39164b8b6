// Extension "clap.remote-controls": the engine's pages, eight parameters under a controller's
// knobs.
#include "live/clap/plugin.h"

namespace brisel::live::clap {

namespace {

uint32_t count(const clap_plugin_t*) {
    return static_cast<uint32_t>(pages().size());
}

bool get(const clap_plugin_t*, uint32_t index, clap_remote_controls_page_t* page) {
    if (index >= pages().size() || !page) return false;
    const Page& source = pages()[index];
    *page = {};
    copy_text(page->section_name, kDescriptor.name);
    page->page_id = index;
    copy_text(page->page_name, source.name);
    std::ranges::copy(source.ids, page->param_ids);
    page->is_for_preset = false;
    return true;
}

} // namespace

constexpr clap_plugin_remote_controls_t kRemoteControls = {count, get};

} // namespace brisel::live::clap
