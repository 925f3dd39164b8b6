# Turns the text of `PROGRAM --help` into a manual page.
#   cmake -DPROGRAM=build/brisel-render "-DSUMMARY=put sound files through the Brisel reverb"
#     -DVERSION=0.1.0 -DOUTPUT=brisel-render.1 -P man_page.cmake
get_filename_component(name ${PROGRAM} NAME)
string(REPLACE "-" "\\-" name "${name}")
string(TOUPPER "${name}" title)
execute_process(COMMAND ${PROGRAM} --help OUTPUT_VARIABLE help COMMAND_ERROR_IS_FATAL ANY)

# CMake's lists are joined by semicolons and its regular expressions know no look-behind, so the
# text is cut into lines by hand, semicolons and brackets hidden.
string(REPLACE "\\" "\\e" help "${help}")
string(REPLACE "-" "\\-" help "${help}")
string(REPLACE ";" "@SEMICOLON@" help "${help}")
string(REPLACE "[" "@OPEN@" help "${help}")
string(REPLACE "]" "@CLOSE@" help "${help}")
string(REPLACE "\n" ";" lines "${help}")

set(page ".TH ${title} 1 \"\" \"Brisel ${VERSION}\" \"Brisel\"
.SH NAME
${name} \\- ${SUMMARY}
.SH SYNOPSIS
.nf
")
set(in_usage TRUE)
set(verbatim FALSE)
foreach(line IN LISTS lines)
  if(in_usage)
    # The usage ends at the first empty line; its first word stands in for the indentation.
    if(line STREQUAL "")
      set(in_usage FALSE)
      string(APPEND page ".fi\n.SH DESCRIPTION\n")
    else()
      string(REGEX REPLACE "^usage:" "" line "${line}")
      string(STRIP "${line}" line)
      string(APPEND page "${line}\n")
    endif()
  elseif(line MATCHES "^([A-Za-z][A-Za-z ]*):$")
    string(TOUPPER "${CMAKE_MATCH_1}" title)
    string(APPEND page ".SH ${title}\n")
  elseif(line MATCHES "^  (\\\\-.*)$")
    # An option, with its description behind two blanks or on the lines that follow.
    set(option "${CMAKE_MATCH_1}")
    set(description "")
    if(option MATCHES "^(.*[^ ])   *(.*)$")
      set(option "${CMAKE_MATCH_1}")
      set(description "${CMAKE_MATCH_2}\n")
    endif()
    string(APPEND page ".TP\n.B ${option}\n${description}")
  elseif(line STREQUAL "")
    if(verbatim)
      string(APPEND page ".fi\n")
      set(verbatim FALSE)
    endif()
    string(APPEND page ".PP\n")
  elseif(line MATCHES "^  [^ ]")
    if(NOT verbatim)
      string(APPEND page ".nf\n")
      set(verbatim TRUE)
    endif()
    string(APPEND page "${line}\n")
  else()
    string(STRIP "${line}" line)
    # A dot at the start of a line would be a request.
    string(APPEND page "\\&${line}\n")
  endif()
endforeach()
if(verbatim)
  string(APPEND page ".fi\n")
endif()
string(REPLACE "@SEMICOLON@" ";" page "${page}")
string(REPLACE "@OPEN@" "[" page "${page}")
string(REPLACE "@CLOSE@" "]" page "${page}")
# No empty paragraph in front of a heading or at the end.
string(REGEX REPLACE "\n(\\.PP\n)+(\\.SH|$)" "\n\\2" page "${page}")
file(WRITE ${OUTPUT} "${page}")
