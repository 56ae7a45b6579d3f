# Builds the library as a static archive (library only), installs it into a
# scratch prefix, then builds and runs the consumer project against it with
# find_package and with pkg-config --static.
file(REMOVE_RECURSE ${WORK_DIR})
include(${CMAKE_CURRENT_LIST_DIR}/consumer_checks.cmake)
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/library -G Ninja
  -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=OFF -DORVANTE_WITH_PDF=${WITH_PDF}
  -DORVANTE_BUILD_TESTS=OFF -DORVANTE_BUILD_BENCHMARKS=OFF -DORVANTE_BUILD_TOOLS=OFF)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/library -j 2)
run(${CMAKE_COMMAND} --install ${WORK_DIR}/library --prefix ${WORK_DIR}/prefix)
check_consumer(${WORK_DIR}/prefix "--static")
