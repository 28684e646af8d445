# What every target of ours is compiled with, in one place.

add_library(oxt_warnings INTERFACE)
target_compile_options(oxt_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wformat=2 -Wundef
  -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual -Wvla
  $<$<BOOL:${OXT_WERROR}>:-Werror>)

# Checks of the C library around copies, where the code is optimised and neither compiler nor packager has set a level.
include(CheckCXXSourceCompiles)
string(TOUPPER "${CMAKE_BUILD_TYPE}" oxt_build_type)
set(CMAKE_REQUIRED_FLAGS ${CMAKE_CXX_FLAGS_${oxt_build_type}})
check_cxx_source_compiles("
#if defined _FORTIFY_SOURCE || !defined __OPTIMIZE__
#error
#endif
int main() {}" OXT_FORTIFY)
unset(CMAKE_REQUIRED_FLAGS)
if(OXT_FORTIFY)
  target_compile_definitions(oxt_warnings INTERFACE _FORTIFY_SOURCE=2)
endif()

# An overflow of a buffer on the stack ends the process instead of running what was written there, and the tables through
# which libraries are called cannot be written once the program runs.
target_compile_options(oxt_warnings INTERFACE -fstack-protector-strong)
target_link_options(oxt_warnings INTERFACE -Wl,-z,relro,-z,now)

# A build for installation is the same from any directory. dpkg's own flags leave out a directory with a blank in its name.
target_compile_options(oxt_warnings INTERFACE "$<$<CONFIG:Release>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>")

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

# oxt_c_library_alone(): the libraries of this directory are loaded into somebody else's process and need the C library
# alone. libgcc.a lends helpers of the compiler, but no unwinder: one linked in would meet the unwinder that the C library
# loads to cancel a thread. What they are linked with stands at the line's end, behind our own static libraries. Threads
# and dlopen are libraries of their own before glibc 2.34, and empty ones since.
macro(oxt_c_library_alone)
  if(NOT OXT_SANITIZE AND NOT OXT_COVERAGE)
    add_link_options(-nodefaultlibs -Wl,-z,defs)
    set(CMAKE_CXX_STANDARD_LIBRARIES "-Wl,--as-needed -lpthread -ldl -lc -lgcc")
  endif()
endmacro()

# oxt_exports(NAME MAP): the library NAME exports what the version script names.
function(oxt_exports name map)
  set_target_properties(${name} PROPERTIES LINK_DEPENDS ${map})
  target_link_options(${name} PRIVATE -Wl,--version-script=${map} -Wl,-z,relro -Wl,-z,now)
endfunction()

# oxt_without_cxx_library(NAME): compiles code that runs inside somebody else's process and brings no C++ run-time library:
# no exceptions, no RTTI, no guarded statics, no assertions of the C++ library's headers, whether a packager asks for them
# or a newer library has them wherever nothing is optimised. Nothing is exported that a version script does not name.
function(oxt_without_cxx_library name)
  target_compile_options(${name} PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics
    -fvisibility=hidden -fvisibility-inlines-hidden -U_GLIBCXX_ASSERTIONS -D_GLIBCXX_NO_ASSERTIONS)
endfunction()

# oxt_room(NAME SOURCES... [DEPENDS ...]): a room of the provider, as a static library with its own include directory.
function(oxt_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} STATIC ${ROOM_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
  oxt_without_cxx_library(${name})
  target_link_libraries(${name} PUBLIC ${ROOM_DEPENDS} Threads::Threads PRIVATE oxt_warnings oxt_instruments)
  list(TRANSFORM ROOM_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  set_property(GLOBAL APPEND PROPERTY OXT_ROOM_SOURCES ${ROOM_SOURCES}) # for those who compile them once more
endfunction()
