# Script run by ctest: install, build the consumer projects against the prefix, run them, and run
# the installed tools the way the README says.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/readme_blocks.cmake)
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  message(STATUS "${what}: ok")
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

# Configures and builds a project against the prefix, then runs its program (given WORK_DIR as
# its argument) in run_dir.
function(build_and_run what source_dir program run_dir)
  set(build ${WORK_DIR}/${program}-build)
  run_step("configure ${what}" ${CMAKE_COMMAND} -S ${source_dir} -B ${build}
           -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix})
  run_step("build ${what}" ${CMAKE_COMMAND} --build ${build})
  file(MAKE_DIRECTORY ${run_dir})
  execute_process(COMMAND ${build}/${program} ${WORK_DIR} WORKING_DIRECTORY ${run_dir}
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "run ${what} failed (${rc}):\n${out}\n${err}")
  endif()
  message(STATUS "run ${what}: ok ${out}")
endfunction()

run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
build_and_run("consumer" ${SOURCE_DIR} consumer ${WORK_DIR})

# The README's consumer project: its CMake block as CMakeLists.txt, its C++ block as main.cc.
set(readme_project ${WORK_DIR}/readme_project)
zq_readme_write_blocks(${README} cmake ${readme_project} txt cmake_blocks)
zq_readme_write_blocks(${README} cpp ${readme_project} cc cpp_blocks)
list(GET cmake_blocks 0 cmake_block)
list(GET cpp_blocks 0 cpp_block)
file(RENAME ${cmake_block} ${readme_project}/CMakeLists.txt)
file(RENAME ${cpp_block} ${readme_project}/main.cc)
build_and_run("README project" ${readme_project} myserver ${WORK_DIR}/readme_run)

# The installed tools, run from the prefix: quelld_sim plays its built-in scenario against the
# installed plug-in and SDK test double, which it finds beside itself.
set(bin ${prefix}/${BINDIR})
file(MAKE_DIRECTORY ${WORK_DIR}/tmp)
run_step("installed quelld_sim" ${CMAKE_COMMAND} -E env TMPDIR=${WORK_DIR}/tmp ${bin}/quelld_sim
         --json ${WORK_DIR}/sim.json)
foreach(want "plug-in: ${prefix}/${LIBDIR}/libzq_plugin.so"
             "SDK: test double, from ${prefix}/${LIBDIR}/zq/sdk_double" "quelld_sim: OK")
  string(FIND "${step_output}" "${want}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "installed quelld_sim did not say '${want}':\n${step_output}")
  endif()
endforeach()
file(GLOB left ${WORK_DIR}/tmp/*)
if(left)
  message(FATAL_ERROR "installed quelld_sim left ${left}")
endif()
run_step("installed frame_decode" ${bin}/frame_decode --hex "0a 09 00 00 00000001 00000002")
file(MAKE_DIRECTORY ${WORK_DIR}/vixgen_out)
run_step("installed vixgen" ${bin}/vixgen ${SCHEMA} ${WORK_DIR}/vixgen_out)
if(NOT EXISTS ${WORK_DIR}/vixgen_out/tframehead.h)
  message(FATAL_ERROR "installed vixgen wrote no tframehead.h")
endif()
run_step("installed vixc" ${bin}/vixc compile ${SCHEMA} -o ${WORK_DIR}/vixgen_out/t.metalib)
run_step("installed vixc dump" ${bin}/vixc dump ${WORK_DIR}/vixgen_out/t.metalib)
