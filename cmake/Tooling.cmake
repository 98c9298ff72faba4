# Warnings and sanitizers as interface targets every project target links.
add_library(qf_tooling INTERFACE)
target_compile_options(qf_tooling INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual)
if(QF_SANITIZE)
    target_compile_options(qf_tooling INTERFACE -fsanitize=address,undefined -fno-omit-frame-pointer
        -fno-sanitize-recover=undefined)
    target_link_options(qf_tooling INTERFACE -fsanitize=address,undefined)
endif()
if(QF_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "QF_FUZZ needs clang (CXX=clang++)")
    endif()
    target_compile_options(qf_tooling INTERFACE -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
        -fno-sanitize-recover=undefined)
    target_link_options(qf_tooling INTERFACE -fsanitize=address,undefined)
endif()
if(QF_TSAN)
    target_compile_options(qf_tooling INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
    target_link_options(qf_tooling INTERFACE -fsanitize=thread)
endif()

# Collects the sources of one folder (not recursive) so a new class needs no CMake edit.
function(qf_glob_sources out dir)
    file(GLOB _files CONFIGURE_DEPENDS ${dir}/*.cpp ${dir}/*.h)
    set(${out} ${_files} PARENT_SCOPE)
endfunction()

# A layer whose folder has no .cpp yet still builds as an (empty) static library.
function(qf_ensure_object out)
    set(_list ${${out}})
    list(FILTER _list INCLUDE REGEX "\\.cpp$")
    if(NOT _list)
        file(WRITE ${CMAKE_BINARY_DIR}/qf_empty.cpp "// intentionally empty\n")
        set(${out} ${${out}} ${CMAKE_BINARY_DIR}/qf_empty.cpp PARENT_SCOPE)
    endif()
endfunction()

# `format` rewrites the tracked C++ sources with .clang-format; `format-check` fails on any file it would
# change. The file list is taken from git when the target runs, so new files need no reconfigure.
find_program(CLANG_FORMAT_PROGRAM NAMES clang-format clang-format-14)
if(CLANG_FORMAT_PROGRAM)
    foreach(_mode format check)
        set(_target format)
        if(_mode STREQUAL "check")
            set(_target format-check)
        endif()
        add_custom_target(${_target}
            COMMAND ${CMAKE_COMMAND} -DCLANG_FORMAT=${CLANG_FORMAT_PROGRAM} -DMODE=${_mode}
                    -P ${CMAKE_CURRENT_LIST_DIR}/Format.cmake
            WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
            USES_TERMINAL
            VERBATIM)
    endforeach()
endif()
