# The README's table between the settings-markdown markers is what `korvex --settings-markdown` prints.
execute_process(COMMAND ${KORVEX} --settings-markdown OUTPUT_VARIABLE generated COMMAND_ERROR_IS_FATAL ANY)
file(READ ${README} readme)
string(REGEX MATCH "<!-- settings-markdown:begin -->\n(.*)<!-- settings-markdown:end -->" block "${readme}")
if(NOT CMAKE_MATCH_1 STREQUAL generated)
  message(FATAL_ERROR "${README}: the table between the settings-markdown markers should read\n${generated}")
endif()
