# Driven by the CTest test `install_consumer` (cmake -P). Installs the build tree into a scratch
# prefix, checks the installed layout, then builds and runs tests/install/ against that prefix
# twice: through find_package(StpTxRx) and through pkg-config.
#
# Inputs (-D): STPTXRX_BINARY_DIR CONSUMER_SOURCE_DIR WORK_DIR CONFIG GENERATOR CXX_COMPILER
#              EXTRA_FLAGS (space separated, e.g. sanitizer flags) EXPECTED_VERSION
#              EXPECTED_SOVERSION LIBDIR INCLUDEDIR
cmake_minimum_required(VERSION 3.20)

foreach(var STPTXRX_BINARY_DIR CONSUMER_SOURCE_DIR WORK_DIR GENERATOR CXX_COMPILER
            EXPECTED_VERSION EXPECTED_SOVERSION LIBDIR INCLUDEDIR)
    if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
        message(FATAL_ERROR "install_consumer: ${var} is not set")
    endif()
endforeach()

set(prefix "${WORK_DIR}/prefix")
set(build "${WORK_DIR}/build")
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")

# Runs a command, echoes it, fails the test when it fails.
function(run)
    string(JOIN " " shown ${ARGN})
    message(STATUS "install_consumer: ${shown}")
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "install_consumer: failed (${rc}): ${shown}")
    endif()
endfunction()

# --- install -----------------------------------------------------------------------------------
set(config_args)
if(CONFIG)
    set(config_args --config "${CONFIG}")
endif()
run("${CMAKE_COMMAND}" --install "${STPTXRX_BINARY_DIR}" --prefix "${prefix}" ${config_args})

set(libdir "${prefix}/${LIBDIR}")
set(real "libstptxrx.so.${EXPECTED_VERSION}")
set(soname "libstptxrx.so.${EXPECTED_SOVERSION}")
foreach(f
        "${libdir}/${real}"
        "${libdir}/${soname}"
        "${libdir}/libstptxrx.so"
        "${libdir}/cmake/StpTxRx/StpTxRxConfig.cmake"
        "${libdir}/cmake/StpTxRx/StpTxRxConfigVersion.cmake"
        "${libdir}/cmake/StpTxRx/StpTxRxTargets.cmake"
        "${libdir}/pkgconfig/stptxrx.pc"
        "${prefix}/${INCLUDEDIR}/stptxrx/runtime/Export.h")
    if(NOT EXISTS "${f}")
        message(FATAL_ERROR "install_consumer: not installed: ${f}")
    endif()
endforeach()
foreach(link "${soname}" "libstptxrx.so")
    if(NOT IS_SYMLINK "${libdir}/${link}")
        message(FATAL_ERROR "install_consumer: ${libdir}/${link} is not a symbolic link")
    endif()
endforeach()
find_program(READELF readelf)
if(READELF)
    execute_process(COMMAND "${READELF}" -d "${libdir}/${real}"
        OUTPUT_VARIABLE dynamic RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0 OR NOT dynamic MATCHES "Library soname: \\[${soname}\\]")
        message(FATAL_ERROR "install_consumer: SONAME of ${real} is not ${soname}:\n${dynamic}")
    endif()
    # The companion library, when installed, follows the same scheme.
    set(pcap_real "libstptxrx_pcap.so.${EXPECTED_VERSION}")
    set(pcap_soname "libstptxrx_pcap.so.${EXPECTED_SOVERSION}")
    if(EXISTS "${libdir}/${pcap_real}")
        execute_process(COMMAND "${READELF}" -d "${libdir}/${pcap_real}"
            OUTPUT_VARIABLE dynamic RESULT_VARIABLE rc)
        if(NOT rc EQUAL 0 OR NOT dynamic MATCHES "Library soname: \\[${pcap_soname}\\]"
                OR NOT IS_SYMLINK "${libdir}/${pcap_soname}")
            message(FATAL_ERROR "install_consumer: SONAME of ${pcap_real} is not ${pcap_soname}:\n${dynamic}")
        endif()
    endif()
endif()

# --- find_package consumer -----------------------------------------------------------------------
set(cmake_config_args)
if(CONFIG)
    set(cmake_config_args "-DCMAKE_BUILD_TYPE=${CONFIG}")
endif()
run("${CMAKE_COMMAND}" -S "${CONSUMER_SOURCE_DIR}" -B "${build}" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
    "-DCMAKE_PREFIX_PATH=${prefix}"
    "-DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF"
    "-DCMAKE_CXX_FLAGS=${EXTRA_FLAGS}"
    "-DCMAKE_EXE_LINKER_FLAGS=${EXTRA_FLAGS}"
    "-DSTPTXRX_EXPECTED_VERSION=${EXPECTED_VERSION}"
    "-DSTPTXRX_EXAMPLES_DIR=${CONSUMER_SOURCE_DIR}/../../examples"
    ${cmake_config_args})
# The package must come from the scratch prefix, not from some other installation.
file(STRINGS "${build}/CMakeCache.txt" found_dir REGEX "^StpTxRx_DIR:")
string(REGEX REPLACE "^[^=]*=" "" found_dir "${found_dir}")
file(REAL_PATH "${found_dir}" found_dir)
file(REAL_PATH "${libdir}/cmake/StpTxRx" expected_dir)
if(NOT found_dir STREQUAL expected_dir)
    message(FATAL_ERROR "install_consumer: StpTxRx found in ${found_dir}, expected ${expected_dir}")
endif()
run("${CMAKE_COMMAND}" --build "${build}" ${config_args})
run("${build}/stptxrx_consumer")
# The consumer asks the loader for the SONAME, major.minor while the major version is 0: a program built
# against another 0.x is not loaded against this one.
if(READELF)
    execute_process(COMMAND "${READELF}" -d "${build}/stptxrx_consumer" OUTPUT_VARIABLE dynamic RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0 OR NOT dynamic MATCHES "Shared library: \\[${soname}\\]")
        message(FATAL_ERROR "install_consumer: stptxrx_consumer does not need ${soname}:\n${dynamic}")
    endif()
endif()
# The README shows examples/FirstProgram.cpp whole, so the program CI builds is the one users read.
file(READ "${CONSUMER_SOURCE_DIR}/../../README.md" readme)
file(READ "${CONSUMER_SOURCE_DIR}/../../examples/FirstProgram.cpp" first_program)
string(FIND "${readme}" "${first_program}" at)
if(at EQUAL -1)
    message(FATAL_ERROR "install_consumer: README.md does not show examples/FirstProgram.cpp as it stands")
endif()
# The README's first program and the mirror example run as shown (the mirror writes its capture, when it
# has the companion library, inside the work directory).
run("${build}/example_FirstProgram")
execute_process(COMMAND "${build}/example_MirrorAndSend" "${WORK_DIR}/mirror.pcap" RESULT_VARIABLE rc
    OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "install_consumer: example_MirrorAndSend failed (${rc})")
endif()

# --- pkg-config consumer -----------------------------------------------------------------------
find_program(PKG_CONFIG pkg-config)
if(NOT PKG_CONFIG)
    message(STATUS "install_consumer: pkg-config not found; skipping the pkg-config check")
    return()
endif()
set(ENV{PKG_CONFIG_PATH} "${libdir}/pkgconfig")
execute_process(COMMAND "${PKG_CONFIG}" --modversion stptxrx
    OUTPUT_VARIABLE pc_version OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(NOT rc EQUAL 0 OR NOT pc_version STREQUAL EXPECTED_VERSION)
    message(FATAL_ERROR "install_consumer: pkg-config --modversion stptxrx gave '${pc_version}' (${rc}), expected ${EXPECTED_VERSION}")
endif()
execute_process(COMMAND "${PKG_CONFIG}" --cflags --libs stptxrx
    OUTPUT_VARIABLE pc_flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "install_consumer: pkg-config --cflags --libs stptxrx failed (${rc})")
endif()
message(STATUS "install_consumer: pkg-config --cflags --libs stptxrx: ${pc_flags}")
separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
separate_arguments(extra UNIX_COMMAND "${EXTRA_FLAGS}")
set(pc_exe "${WORK_DIR}/stptxrx_consumer_pc")
run("${CXX_COMPILER}" -std=c++20 ${extra} "${CONSUMER_SOURCE_DIR}/main.cpp" -o "${pc_exe}"
    ${pc_flags} "-Wl,-rpath,${libdir}")
run("${pc_exe}")

# The companion library through pkg-config, when it was installed: its Requires pulls in stptxrx.
if(EXISTS "${libdir}/pkgconfig/stptxrx-pcap.pc")
    execute_process(COMMAND "${PKG_CONFIG}" --cflags --libs stptxrx-pcap
        OUTPUT_VARIABLE pcap_flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "install_consumer: pkg-config --cflags --libs stptxrx-pcap failed (${rc})")
    endif()
    separate_arguments(pcap_flags UNIX_COMMAND "${pcap_flags}")
    set(pcap_exe "${WORK_DIR}/stptxrx_receive_pc")
    run("${CXX_COMPILER}" -std=c++20 ${extra} "${CONSUMER_SOURCE_DIR}/../../examples/ReceiveBpdus.cpp"
        -o "${pcap_exe}" ${pcap_flags} "-Wl,-rpath,${libdir}")
    run("${pcap_exe}" "${WORK_DIR}/mirror.pcap")
endif()
