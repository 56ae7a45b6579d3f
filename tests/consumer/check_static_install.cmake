# Builds the library as a static archive (library only), installs it into a
# scratch prefix, then builds and runs the consumer project against it with
# find_package and with pkg-config --static.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/library -G Ninja
  -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=OFF -DORVANTE_WITH_PDF=${WITH_PDF}
  -DORVANTE_BUILD_TESTS=OFF -DORVANTE_BUILD_BENCHMARKS=OFF -DORVANTE_BUILD_TOOLS=OFF)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/library -j 2)
run(${CMAKE_COMMAND} --install ${WORK_DIR}/library --prefix ${prefix})

run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-build -DCMAKE_PREFIX_PATH=${prefix}
  -DCONSUMER_PDF=${WITH_PDF})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run(${WORK_DIR}/cmake-build/consumer)
if(NOT last_output MATCHES "orvante 1.0.0")
  message(FATAL_ERROR "unexpected output: ${last_output}")
endif()
run(${WORK_DIR}/cmake-build/printing_test)
if(NOT last_output MATCHES "printed [0-9]+ bytes")
  message(FATAL_ERROR "unexpected output: ${last_output}")
endif()

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(pkg-config --static --cflags --libs orvante)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
if(WITH_PDF)
  list(APPEND flags -DCONSUMER_PDF)
endif()
run(c++ ${CONSUMER_DIR}/main.cpp ${flags} -o ${WORK_DIR}/pkg-consumer)
run(${WORK_DIR}/pkg-consumer)
if(NOT last_output MATCHES "orvante 1.0.0")
  message(FATAL_ERROR "unexpected output: ${last_output}")
endif()
