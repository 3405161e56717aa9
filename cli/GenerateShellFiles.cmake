# Run at build time (cmake -P): writes vxcloud's shell completions and manual page, which the
# program prints from its own command definitions, so they never disagree with it.
#   -DPROGRAM=path/to/vxcloud -DOUTPUT_DIR=folder
foreach(job "completion;bash;vxcloud.bash" "completion;zsh;_vxcloud" "help;--man;vxcloud.1")
  list(GET job 0 command)
  list(GET job 1 argument)
  list(GET job 2 file)
  execute_process(COMMAND ${PROGRAM} ${command} ${argument}
                  OUTPUT_FILE ${OUTPUT_DIR}/${file}.new
                  RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "`vxcloud ${command} ${argument}` failed (${status})")
  endif()
  file(RENAME ${OUTPUT_DIR}/${file}.new ${OUTPUT_DIR}/${file})
endforeach()
