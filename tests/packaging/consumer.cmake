file(REMOVE_RECURSE ${SCRATCH})
set(example ${ROOT}/examples/minimal_host.c)
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()
function(pkg_config output)
  execute_process(COMMAND pkg-config ${ARGN} OUTPUT_VARIABLE text OUTPUT_STRIP_TRAILING_WHITESPACE
                  COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(words UNIX_COMMAND "${text}")
  set(${output} ${words} PARENT_SCOPE)
endfunction()

# Plays the call of FOLDER/consumer into FOLDER/SOUND.pcm; its log must, or must not, tell of a missing worker.
function(play folder sound has_worker)
  execute_process(COMMAND ${folder}/consumer ${folder}/${sound}.pcm ERROR_VARIABLE log RESULT_VARIABLE code)
  string(FIND "${log}" "no worker (-14), the codec conceals" missing)
  if(code OR (has_worker AND missing GREATER -1) OR (NOT has_worker AND missing EQUAL -1))
    message(FATAL_ERROR "${folder}/consumer ended with ${code}; worker expected: ${has_worker}; it said\n${log}")
  endif()
endfunction()

# The program finds its worker through a folder x64, or a link to it, beside itself alone. That the worker serves
# is heard: a request that fails leaves the sound of the codec. On a busy machine all answers may come too late.
function(check_worker folder worker)
  get_filename_component(worker_folder ${worker} DIRECTORY)
  play(${folder} codec FALSE)
  file(CREATE_LINK ${worker_folder} ${folder}/x64 SYMBOLIC)
  foreach(attempt RANGE 1 3)
    play(${folder} worker TRUE)
    file(MD5 ${folder}/codec.pcm codec)
    file(MD5 ${folder}/worker.pcm with_worker)
    if(NOT codec STREQUAL with_worker)
      return()
    endif()
  endforeach()
  message(FATAL_ERROR "${worker} answers no request: the sound is the codec's")
endfunction()

# The README shows the example as it is built here.
file(READ ${ROOT}/README.md readme)
file(READ ${example} text)
string(FIND "${readme}" "${text}" shown)
if(shown EQUAL -1)
  message(FATAL_ERROR "README.md does not show examples/minimal_host.c as it is")
endif()
string(MD5 build ${BUILD})
set(ENV{AIPLC_NAMESPACE} consumer-${build})

# With CMake, from a prefix that was not known when the library was configured.
set(prefix ${SCRATCH}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${SOURCE} -B ${SCRATCH}/build -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${CC}
    -DCMAKE_C_FLAGS=${FLAGS} -DEXAMPLE=${example} -DEXAMPLES=${ROOT}/examples)
run(${CMAKE_COMMAND} --build ${SCRATCH}/build)
check_worker(${SCRATCH}/build ${SCRATCH}/build/worker/x64/xanu_audio_aiplc.exe)
run(${prefix}/bin/aiplc --version)

# With pkg-config alone, from a staged installation.
set(ENV{DESTDIR} ${SCRATCH}/stage)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix /opt/aiplc)
unset(ENV{DESTDIR})
file(GLOB folder ${SCRATCH}/stage/opt/aiplc/lib/pkgconfig ${SCRATCH}/stage/opt/aiplc/lib/*/pkgconfig)
set(ENV{PKG_CONFIG_PATH} ${folder})
pkg_config(flags --cflags --libs aiplc opus)
pkg_config(library_folder --variable=libdir aiplc)
pkg_config(worker --variable=worker aiplc)
file(MAKE_DIRECTORY ${SCRATCH}/staged)
run(${CC} -std=c11 ${FLAGS} ${SOURCE}/main.c ${example} -o ${SCRATCH}/staged/consumer ${flags} -lm
    -Wl,-rpath,${library_folder})
check_worker(${SCRATCH}/staged ${worker})
pkg_config(flags --cflags --libs aiplc-receiver)
run(${CC} -std=c11 ${FLAGS} ${ROOT}/examples/receive_udp.c -o ${SCRATCH}/staged/receive_udp ${flags}
    -Wl,-rpath,${library_folder})

# Nothing but folders is left of both.
foreach(installed ${prefix} ${SCRATCH}/stage/opt/aiplc)
  if(NOT EXISTS ${installed}/share/doc/aiplc/LICENSE)
    message(FATAL_ERROR "the licence is not installed")
  endif()
  run(${CMAKE_COMMAND} -DPREFIX=${installed} -P ${ROOT}/cmake/Uninstall.cmake)
  file(GLOB_RECURSE left LIST_DIRECTORIES true ${installed}/*)
  list(FILTER left INCLUDE REGEX "/[^/]*(aiplc|LICENSE)[^/]*$")
  if(left)
    message(FATAL_ERROR "uninstalling leaves ${left}")
  endif()
endforeach()
