# cmake -P script: see CMakeLists.txt beside it.
function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${what} failed (${code}):\n${ARGN}\n${out}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(installed
    include/ole/kvimage.h
    include/ole/image/KvImageVersion.h
    ${LIBDIR}/libkvimage.so
    ${LIBDIR}/libkvplatform.so
    ${LIBDIR}/cmake/KvImage/KvImageConfig.cmake
    ${LIBDIR}/cmake/KvImage/KvImageConfigVersion.cmake
    ${LIBDIR}/pkgconfig/kvimage.pc
    ${LIBDIR}/kvimage/plugins)
  if(NOT EXISTS ${prefix}/${installed})
    message(FATAL_ERROR "not installed: ${installed}")
  endif()
endforeach()
file(GLOB sources_installed RELATIVE ${prefix} ${prefix}/include/ole/*.cpp ${prefix}/include/ole/*/*.cpp)
if(sources_installed)
  message(FATAL_ERROR "sources installed among the headers: ${sources_installed}")
endif()

# Through the CMake package.
run("configure consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-build
  -G ${GENERATOR} -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}
  -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
  "-DCMAKE_CXX_FLAGS=${FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${FLAGS}"
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON)
run("build consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run("run consumer" ${WORK_DIR}/cmake-build/kvimage-consumer)
message(STATUS "CMake consumer: ${last_output}")
if(NOT last_output MATCHES "^14\\.0\\.0\\.0\n")
  message(FATAL_ERROR "the consumer printed the wrong version:\n${last_output}")
endif()

# Through pkg-config, with the compiler driven by hand as a Makefile would.
find_program(PKG_CONFIG pkg-config)
if(NOT PKG_CONFIG)
  message(FATAL_ERROR "pkg-config is missing: run scripts/install-deps")
endif()
set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run("pkg-config" ${PKG_CONFIG} --cflags --libs kvimage)
string(STRIP "${last_output}" pc_flags)
separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
run("pkg-config libdir" ${PKG_CONFIG} --variable=libdir kvimage)
string(STRIP "${last_output}" pc_libdir)
separate_arguments(extra_flags UNIX_COMMAND "${FLAGS}")
set(exe ${WORK_DIR}/pkg-config-consumer)
run("compile through pkg-config" ${CXX_COMPILER} -std=c++20 ${extra_flags}
  ${CONSUMER_DIR}/main.cpp -o ${exe} ${pc_flags} -Wl,-rpath,${pc_libdir})
run("run pkg-config consumer" ${exe})
message(STATUS "pkg-config consumer: ${last_output}")
