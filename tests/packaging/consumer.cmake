file(REMOVE_RECURSE ${SCRATCH})
set(prefix ${SCRATCH}/prefix)
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

# The README shows the example as it is built here.
file(READ ${ROOT}/README.md readme)
file(READ ${ROOT}/examples/minimal_host.c example)
string(FIND "${readme}" "${example}" shown)
if(shown EQUAL -1)
  message(FATAL_ERROR "README.md does not show examples/minimal_host.c as it is")
endif()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${SOURCE} -B ${SCRATCH}/build -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_C_FLAGS=${FLAGS} -DEXAMPLE=${ROOT}/examples/minimal_host.c)
run(${CMAKE_COMMAND} --build ${SCRATCH}/build)
string(MD5 build ${BUILD})
set(ENV{AIPLC_NAMESPACE} consumer-${build})
run(${SCRATCH}/build/consumer)
run(${prefix}/bin/aiplc --version)
set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig:${prefix}/lib/x86_64-linux-gnu/pkgconfig)
run(pkg-config --exists --print-errors aiplc)
