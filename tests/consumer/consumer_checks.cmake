# What both consumer checks do once the library is installed in ${prefix}:
# build the consumer project with find_package and run its programs, then
# build its main program with the flags pkg-config gives and run it.

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

function(expect_output pattern)
  if(NOT last_output MATCHES "${pattern}")
    message(FATAL_ERROR "unexpected output: ${last_output}")
  endif()
endfunction()

# pkg_config_options: --static for a static library, or nothing.
function(check_consumer prefix pkg_config_options)
  run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-build
    -DCMAKE_PREFIX_PATH=${prefix} -DCONSUMER_PDF=${WITH_PDF})
  run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
  run(${WORK_DIR}/cmake-build/consumer)
  expect_output("orvante 1.0.0")
  run(${WORK_DIR}/cmake-build/printing_test)
  expect_output("printed [0-9]+ bytes")

  set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
  run(pkg-config ${pkg_config_options} --cflags --libs orvante)
  string(STRIP "${last_output}" flags)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  if(WITH_PDF)
    list(APPEND flags -DCONSUMER_PDF)
  endif()
  run(c++ ${CONSUMER_DIR}/main.cpp ${flags} -o ${WORK_DIR}/pkg-consumer)
  set(ENV{LD_LIBRARY_PATH} ${prefix}/${LIBDIR})
  run(${WORK_DIR}/pkg-consumer)
  expect_output("orvante 1.0.0")
endfunction()
