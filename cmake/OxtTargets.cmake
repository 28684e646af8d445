# What every target of ours is compiled with, in one place.

add_library(oxt_warnings INTERFACE)
target_compile_options(oxt_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wformat=2 -Wundef
  -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual -Wnull-dereference -Wvla
  $<$<BOOL:${OXT_WERROR}>:-Werror>)
target_compile_definitions(oxt_warnings INTERFACE $<$<CONFIG:Release,RelWithDebInfo>:_FORTIFY_SOURCE=2>)

add_library(oxt_instruments INTERFACE)
if(OXT_SANITIZE)
  target_compile_options(oxt_instruments INTERFACE -fsanitize=${OXT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(oxt_instruments INTERFACE -fsanitize=${OXT_SANITIZE})
endif()
if(OXT_FUZZ) # the fuzzers see which way an input goes; optimised, since they count by the second
  target_compile_options(oxt_instruments INTERFACE -fsanitize=fuzzer-no-link -O1)
  target_link_options(oxt_instruments INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(OXT_COVERAGE)
  target_compile_options(oxt_instruments INTERFACE --coverage)
  target_link_options(oxt_instruments INTERFACE --coverage)
endif()

# oxt_room(NAME SOURCES... [DEPENDS ...]): a room of the provider, as a static library with its own include directory.
# The provider runs inside somebody else's process and brings no C++ run-time library: no exceptions, no RTTI, no
# guarded statics. Nothing is exported that the version script does not name.
add_library(oxt_room_options INTERFACE)
target_compile_options(oxt_room_options INTERFACE -fno-exceptions -fno-rtti -fno-threadsafe-statics
  -fvisibility=hidden -fvisibility-inlines-hidden)
target_link_libraries(oxt_room_options INTERFACE oxt_warnings oxt_instruments)

function(oxt_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} STATIC ${ROOM_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ROOM_DEPENDS} Threads::Threads PRIVATE oxt_room_options)
  list(TRANSFORM ROOM_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  set_property(GLOBAL APPEND PROPERTY OXT_ROOM_SOURCES ${ROOM_SOURCES}) # for those who compile them once more
endfunction()
