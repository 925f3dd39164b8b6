# cmake -D PRESETS=folder -D OUTPUT=file.cpp -P embed_presets.cmake
# Writes every <category>/<name>.preset of the folder into a C++ source, as live/engine/presets.h lists them.
file(GLOB files RELATIVE "${PRESETS}" "${PRESETS}/*/*.preset")
list(SORT files)
set(source "// Made by embed_presets.cmake.\n")
string(APPEND source "#include \"live/engine/presets.h\"\n\n#include \"live/engine/preset_title.h\"\n\n")
string(APPEND source "namespace brisel::live {\n\nnamespace {\n\n")
set(rows "")
set(number 0)
foreach(file IN LISTS files)
  file(READ "${PRESETS}/${file}" text)
  string(REGEX MATCH "^# ([^\n]+)\n" description "${text}")
  if(NOT description)
    message(FATAL_ERROR "${file}: the first line has to be a comment that says what it is for")
  endif()
  set(description "${CMAKE_MATCH_1}")
  string(REGEX REPLACE "\\.preset$" "" key "${file}")
  get_filename_component(category "${key}" DIRECTORY)
  get_filename_component(stem "${key}" NAME)
  string(APPEND source
    "constexpr Title kCategory${number}(\"${category}\"), kName${number}(\"${stem}\");\n")
  string(APPEND rows "    {kCategory${number}.text(), kName${number}.text(), \"${key}\",\n"
    "     R\"text(${description})text\",\n     R\"text(${text})text\"},\n")
  math(EXPR number "${number} + 1")
endforeach()
string(APPEND source "\nconstexpr FactoryPreset kPresets[] = {\n${rows}};\n\n} // namespace\n\n"
  "std::span<const FactoryPreset> factory_presets() {\n    return kPresets;\n}\n\n"
  "} // namespace brisel::live\n")
file(WRITE "${OUTPUT}" "${source}")
