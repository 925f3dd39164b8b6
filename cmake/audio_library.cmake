# brisel_audio_library(target exports.map): a shared library that hosts and programs load for their audio
# threads, and that needs libc and libm only.
function(brisel_audio_library target exports)
  target_compile_options(${target} PRIVATE
    -fno-exceptions -fno-rtti -fno-threadsafe-statics -fvisibility=hidden -fvisibility-inlines-hidden)
  # Bound at load: no symbol is looked up for the first time on the audio thread, whichever way the library
  # is opened. Calls inside it stay inside: another copy, an older release perhaps, whose symbols a host
  # has made global does not take them over. What it uses of the C++ run-time library is linked into it.
  target_link_options(${target} PRIVATE
    $<$<LINK_LANGUAGE:CXX>:-static-libstdc++> $<$<LINK_LANGUAGE:CXX>:-static-libgcc>
    -Wl,--as-needed -Wl,-z,now -Wl,-Bsymbolic -Wl,--gc-sections
    -Wl,--version-script=${CMAKE_CURRENT_SOURCE_DIR}/${exports})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${exports})
  # (The run-time of clang's sanitizers is in the executable alone.)
  if(NOT "${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS}" MATCHES "-fsanitize")
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()
endfunction()

# brisel_static_library(target EXPORTS pattern... FROM object-or-archive... [LIBRARIES flag...]): the same for
# programs that want no library beside them. The archive holds one object in which everything but the
# exports is local, so that it serves linkers of C, and meets neither names of the program nor another copy
# of the engines.
function(brisel_static_library target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "EXPORTS;FROM;LIBRARIES")
  set(object ${CMAKE_CURRENT_BINARY_DIR}/${target}.o)
  separate_arguments(flags NATIVE_COMMAND "${CMAKE_CXX_FLAGS}")
  list(TRANSFORM arg_EXPORTS PREPEND --keep-global-symbol=)
  add_custom_command(OUTPUT ${object}
    COMMAND ${CMAKE_CXX_COMPILER} ${flags} -fno-sanitize=all -r -nostdlib -o ${object}
      ${arg_FROM} -Wl,--force-group-allocation ${arg_LIBRARIES}
    COMMAND ${CMAKE_OBJCOPY} --wildcard --weaken-symbol=_Z* ${object} # unique ones do not become local
    COMMAND ${CMAKE_OBJCOPY} --wildcard ${arg_EXPORTS} ${object}
    DEPENDS ${arg_FROM} COMMAND_EXPAND_LISTS VERBATIM COMMENT "One object of ${target}")
  add_library(${target} STATIC ${object})
  set_source_files_properties(${object} PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
  target_link_libraries(${target} PUBLIC m)
endfunction()
