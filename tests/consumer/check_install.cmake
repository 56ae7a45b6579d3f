# Installs the build into a scratch prefix, then builds and runs the
# consumer project with find_package and with pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
include(${CMAKE_CURRENT_LIST_DIR}/consumer_checks.cmake)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
check_consumer(${WORK_DIR}/prefix "")

# The installed programs run from this prefix, which is no system one.
foreach(program orvante orvante-vprinter)
  if(EXISTS ${WORK_DIR}/prefix/bin/${program})
    run(${WORK_DIR}/prefix/bin/${program} --help)
  endif()
endforeach()
