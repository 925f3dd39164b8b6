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
