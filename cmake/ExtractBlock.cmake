# Writes the first fenced block of a language out of a Markdown document, so that what a guide shows is what
# a test compiles:
#   cmake -D DOCUMENT=README.md -D LANGUAGE=cpp -D OUTPUT=plugin.cpp -P ExtractBlock.cmake
file(READ ${DOCUMENT} text)
if(NOT text MATCHES "(^|\n)```${LANGUAGE}\n([^`]*)```")
  message(FATAL_ERROR "${DOCUMENT} has no block of ${LANGUAGE}")
endif()
file(WRITE ${OUTPUT} "${CMAKE_MATCH_2}")
