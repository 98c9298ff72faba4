# Run by the format and format-check targets: cmake -DCLANG_FORMAT=... -DMODE=format|check -P Format.cmake,
# from the repository root.
execute_process(
    COMMAND git ls-files -- src/*.cpp src/*.h tests/*.cpp tests/*.h tools/*.cpp tools/*.h bench/*.cpp bench/*.h
    OUTPUT_VARIABLE _files
    OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE _git_result)
if(NOT _git_result EQUAL 0)
    message(FATAL_ERROR "git ls-files failed; run from a git checkout")
endif()
string(REPLACE "\n" ";" _files "${_files}")
if(MODE STREQUAL "check")
    set(_flags --dry-run --Werror)
else()
    set(_flags -i)
endif()
# One call per file keeps each command line short; the failures of a check are counted and listed.
set(_failed 0)
foreach(_file IN LISTS _files)
    execute_process(COMMAND ${CLANG_FORMAT} ${_flags} ${_file} RESULT_VARIABLE _result)
    if(NOT _result EQUAL 0)
        math(EXPR _failed "${_failed} + 1")
    endif()
endforeach()
if(_failed GREATER 0)
    if(MODE STREQUAL "check")
        message(FATAL_ERROR "${_failed} file(s) are not formatted; run the format target")
    else()
        message(FATAL_ERROR "clang-format failed on ${_failed} file(s)")
    endif()
endif()
