# Shared build settings and the two helpers every layer uses.

add_library(vistrel_options INTERFACE)
target_compile_options(vistrel_options INTERFACE -Wall -Wextra -Wshadow -Wnon-virtual-dtor)
target_compile_definitions(vistrel_options INTERFACE
  QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII
  QT_NO_CAST_FROM_BYTEARRAY QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)
if(VISTREL_WERROR)
  target_compile_options(vistrel_options INTERFACE -Werror)
endif()
if(VISTREL_SANITIZE)
  target_compile_options(vistrel_options INTERFACE
    -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  target_link_options(vistrel_options INTERFACE -fsanitize=address,undefined)
endif()

# vistrel_layer(<target> [DEPS <targets...>])
# One static library per folder: every .cpp/.h in the calling folder, sources
# found by glob so that adding a file needs no CMake edit.
function(vistrel_layer target)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS
    ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  set(compiled ${sources})
  list(FILTER compiled INCLUDE REGEX "\\.cpp$")
  if(compiled)
    add_library(${target} STATIC ${sources})
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${target} PUBLIC vistrel_options ${ARG_DEPS})
  else()
    add_library(${target} INTERFACE ${sources})
    target_include_directories(${target} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${target} INTERFACE vistrel_options ${ARG_DEPS})
  endif()
endfunction()

# vistrel_tests(LIBS <targets...> [LABELS <labels...>] [ENVIRONMENT <k=v...>])
# One QtTest executable and one CTest entry per tst_*.cpp in the calling folder.
function(vistrel_tests)
  cmake_parse_arguments(ARG "" "TIMEOUT" "LIBS;LABELS;ENVIRONMENT;FIXTURES" ${ARGN})
  file(GLOB tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/tst_*.cpp)
  file(GLOB support CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/support_*.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/support_*.h)
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  foreach(file IN LISTS tests)
    get_filename_component(name ${file} NAME_WE)
    set(target ${name})
    add_executable(${target} ${file} ${support})
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${target} PRIVATE vistrel_options Qt6::Test ${ARG_LIBS})
    add_test(NAME ${name} COMMAND ${target})
    set_tests_properties(${name} PROPERTIES
      TIMEOUT ${ARG_TIMEOUT}
      LABELS "${ARG_LABELS}"
      ENVIRONMENT "QT_QPA_PLATFORM=offscreen;LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp;UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1;${ARG_ENVIRONMENT}")
    if(ARG_FIXTURES)
      set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED "${ARG_FIXTURES}")
    endif()
  endforeach()
endfunction()

# Adds the subfolder when someone has started it.
macro(vistrel_optional_subdirectory dir)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
    add_subdirectory(${dir})
  endif()
endmacro()
