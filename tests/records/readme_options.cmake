# The table of options between the settings-markdown markers of the README is exactly what
# `korvex --settings-markdown` prints. Run as cmake -DKORVEX=... -DREADME=... -P this file.
execute_process(COMMAND ${KORVEX} --settings-markdown OUTPUT_VARIABLE generated RESULT_VARIABLE result)
file(READ ${README} readme)
string(REGEX MATCH "<!-- settings-markdown:begin -->\n(.*)<!-- settings-markdown:end -->" block "${readme}")
if(NOT result EQUAL 0 OR NOT block OR NOT CMAKE_MATCH_1 STREQUAL generated)
  message(FATAL_ERROR "${README}: the table between the settings-markdown markers is not what "
                      "`korvex --settings-markdown` prints; paste this in:\n${generated}")
endif()
