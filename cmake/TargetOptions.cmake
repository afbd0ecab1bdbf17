# What every target of this project is compiled with. A function, never global flags, so that a
# project which includes this one keeps its own.
function(pluginsdk_target_options target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  # Large-file and POSIX interfaces (gettid, pread, shm_open) that strict C++17 would hide.
  target_compile_definitions(${target} PRIVATE _GNU_SOURCE)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  if(PLUGINSDK_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(PLUGINSDK_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${PLUGINSDK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_compile_definitions(${target} PRIVATE PLUGINSDK_SANITIZED)
    if(PLUGINSDK_SANITIZE MATCHES "integer")
      target_compile_options(${target} PRIVATE
        -fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/sanitizer-ignore.txt)
    endif()
    target_link_options(${target} PRIVATE -fsanitize=${PLUGINSDK_SANITIZE})
  endif()
  if(PLUGINSDK_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()

function(pluginsdk_executable target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${target} ${arg_SOURCES})
  pluginsdk_target_options(${target})
  target_link_libraries(${target} PRIVATE ${arg_LIBRARIES})
endfunction()
