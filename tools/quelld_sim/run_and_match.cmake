# Runs the simulator and checks its exit code and output.
#   -DSIM=<program>  -DARGS=<arguments separated by |>  -DMATCH=<regular expressions separated by |>
# Every expression must match some part of standard output.
string(REPLACE "|" ";" args "${ARGS}")
string(REPLACE "|" ";" matches "${MATCH}")
execute_process(COMMAND ${SIM} ${args} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
message("${out}")
if(err)
  message("${err}")
endif()
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "quelld_sim exited with ${rc}")
endif()
foreach(m IN LISTS matches)
  if(NOT out MATCHES "${m}")
    message(FATAL_ERROR "quelld_sim output lacks a line matching: ${m}")
  endif()
endforeach()
