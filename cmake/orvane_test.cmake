# add_orvane_test(name SOURCES a.cpp ... LIBS lib ... [ENV VAR=value ...] [LABELS ...])
# Registers a QtTest executable with CTest, headless.
function(add_orvane_test name)
    cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;ENV;LABELS" ${ARGN})
    foreach(source ${T_SOURCES})
        if(NOT EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${source})
            message(WARNING "${name}: ${source} is missing, test left out")
            return()
        endif()
    endforeach()
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE orvane_flags Qt5::Test ${T_LIBS})
    add_test(NAME ${name} COMMAND ${name})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 300)
    endif()
    set_tests_properties(${name} PROPERTIES
        TIMEOUT ${T_TIMEOUT}
        LABELS "${T_LABELS}"
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp;ASAN_OPTIONS=detect_leaks=1;UBSAN_OPTIONS=print_stacktrace=1;ORVANE_TOOLS_DIR=${CMAKE_BINARY_DIR}/tools;${T_ENV}")
endfunction()
