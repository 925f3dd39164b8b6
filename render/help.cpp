#include "render/help.h"

#include <sstream>

namespace brisel::render {

std::string HelpFormatter::make_help(const CLI::App* app, std::string,
                                     CLI::AppFormatMode mode) const {
    return "usage: brisel-render IN OUT [OPTION...]\n"
           "       brisel-render IN... -o FOLDER [OPTION...]\n\n" +
           app->get_description() + "\n\n" + make_groups(app, mode) + app->get_footer();
}

std::string HelpFormatter::make_group(std::string group, bool is_positional,
                                      std::vector<const CLI::Option*> options) const {
    std::string text = group + ":\n";
    for (const CLI::Option* option : options) text += make_option(option, is_positional);
    return text;
}

std::string HelpFormatter::make_option_name(const CLI::Option* option, bool) const {
    std::string names;
    for (const std::string& name : option->get_snames()) names += "-" + name + ", ";
    return names + "--" + option->get_lnames().front();
}

std::string HelpFormatter::make_option(const CLI::Option* option, bool is_positional) const {
    constexpr size_t kColumn = 30, kWidth = 80;
    const std::string margin(kColumn, ' ');
    std::string text = "  " + make_option_name(option, is_positional) + make_option_opts(option);
    text += text.size() + 1 < kColumn ? margin.substr(text.size()) : "\n" + margin;
    size_t at = kColumn;
    std::istringstream words(option->get_description());
    for (std::string word; words >> word;) {
        if (at > kColumn && at + 1 + word.size() > kWidth) {
            text += "\n" + margin;
            at = kColumn;
        }
        if (at > kColumn) text += ' ';
        text += word;
        at += word.size() + 1;
    }
    return text + "\n";
}

std::string HelpFormatter::make_option_opts(const CLI::Option* option) const {
    const std::string type = option->get_type_name();
    return type.empty() || type.starts_with('[') ? type : " " + type;
}

const char* const kHelpFooter = R"(
Values:
Times are written 40ms or 0.04s, a number alone is in seconds; shares 0.35 or
35%; gains -2dB, a number alone is in dB. Settings count in this order: --state,
--preset, then the options above.

Sound files:
Whatever libsndfile reads: mono, stereo, or --channels of more. Results are
stereo: .wav .aiff .au .w64 .rf64 .caf .raw (the input's bits, 32-bit float of
other inputs), .flac (the input's bits, else 24), .ogg, .opus. Tags, broadcast
chunks, cue points and loops are carried over where the format holds them. A
result appears under its name when it is complete. The same input and options
give the same bytes, apart from the random stream number in .ogg and .opus files.

Pipes:
The name - is standard input or output, for sounds, presets, states and
automation. A result for a pipe is WAV unless --format says otherwise; messages
then go to standard error.

Text files:
An automation file has lines `time name value`, such as `2.5s decay 8s`, a preset
lines `name = value`, such as `size = 40 ms`. A # starts a comment in both.

Exit codes:
  0  success
  1  a file or the plug-in failed
  2  wrong usage

Examples:
  brisel-render dry.wav wet.wav --decay 4 --size 60ms --mix 40%
  brisel-render drums/*.wav -o wet/ --preset hall --json
  brisel-render songs -o wet/ --recursive --jobs 4 --format flac
  brisel-render in.flac out.flac --normalize --bits 16 --dither
  ffmpeg -i film.mkv -f wav - | brisel-render - - | aplay
)";

} // namespace brisel::render
