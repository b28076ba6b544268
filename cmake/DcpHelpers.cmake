# dcp_add_qtest(NAME <name> SOURCES <files...> [LIBS <targets...>] [LABELS <labels...>])
#
# One QtTest executable registered with ctest. Every test runs headless
# (offscreen platform) with its settings store redirected below the build
# tree, so no test touches the real home directory. In a cross build ctest
# starts each test through CMAKE_CROSSCOMPILING_EMULATOR, and DCP_EMULATOR
# hands the same command prefix (space-separated) to the tests that start our
# programs as child processes.
function(dcp_add_qtest)
    cmake_parse_arguments(T "" "NAME" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${T_NAME} ${T_SOURCES})
    target_link_libraries(${T_NAME} PRIVATE Qt5::Test ${T_LIBS})
    set_target_properties(${T_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    add_test(NAME ${T_NAME} COMMAND ${T_NAME})
    set(environment
        QT_QPA_PLATFORM=offscreen
        XDG_CONFIG_HOME=${CMAKE_BINARY_DIR}/test-home/config
        HOME=${CMAKE_BINARY_DIR}/test-home
        DCP_BUILD_DIR=${CMAKE_BINARY_DIR}
        DCP_SOURCE_DIR=${PROJECT_SOURCE_DIR})
    set_tests_properties(${T_NAME} PROPERTIES LABELS "${T_LABELS}")
    if(CMAKE_CROSSCOMPILING_EMULATOR)
        list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
        list(APPEND environment "DCP_EMULATOR=${emulator}")
        # Two emulated processes keep the controller's timing only with the
        # machine to themselves: the end-to-end suites run alone there.
        if("e2e" IN_LIST T_LABELS)
            set_tests_properties(${T_NAME} PROPERTIES RUN_SERIAL ON)
        endif()
    endif()
    set_tests_properties(${T_NAME} PROPERTIES ENVIRONMENT "${environment}")
endfunction()

# dcp_add_subdirectories(): add every direct subfolder that has a CMakeLists.txt,
# so each suite, benchmark or fuzz target owns its own folder.
function(dcp_add_subdirectories)
    # CONFIGURE_DEPENDS: a suite folder added or removed re-runs CMake in an existing build.
    file(GLOB children LIST_DIRECTORIES true CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*)
    list(SORT children)
    foreach(child ${children})
        if(IS_DIRECTORY ${child} AND EXISTS ${child}/CMakeLists.txt)
            add_subdirectory(${child})
        endif()
    endforeach()
endfunction()

# dcp_add_bench(NAME <name> SOURCES <files...> [LIBS <targets...>])
function(dcp_add_bench)
    cmake_parse_arguments(B "" "NAME" "SOURCES;LIBS" ${ARGN})
    add_executable(${B_NAME} ${B_SOURCES})
    target_link_libraries(${B_NAME} PRIVATE ${B_LIBS})
    set_target_properties(${B_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
endfunction()

# dcp_add_fuzzer(NAME <name> SOURCES <files...> [LIBS <targets...>])
# The executable is fuzz_<name>; seeds live in fuzz/seeds/<name>/.
function(dcp_add_fuzzer)
    cmake_parse_arguments(F "" "NAME" "SOURCES;LIBS" ${ARGN})
    add_executable(fuzz_${F_NAME} ${F_SOURCES})
    target_compile_options(fuzz_${F_NAME} PRIVATE -fsanitize=fuzzer)
    target_link_options(fuzz_${F_NAME} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(fuzz_${F_NAME} PRIVATE ${F_LIBS})
    set_target_properties(fuzz_${F_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz)
endfunction()
