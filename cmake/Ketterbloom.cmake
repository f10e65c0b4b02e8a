# Shared helpers for the project's targets.

set(KETTERBLOOM_TEST_HOME_ROOT "${CMAKE_BINARY_DIR}/test-homes")

# kb_add_test(NAME <name> SOURCES <files...> LIBS <targets...>
#             [FIXTURES <fixture...>] [LABELS <label...>] [TIMEOUT <seconds>] [ENV <VAR=value...>])
# Builds a Qt Test executable and registers it with CTest. Every test runs with its own
# empty HOME and XDG folders so it never touches the developer's settings, key or records,
# and with the offscreen Qt platform so no display is needed.
function(kb_add_test)
  cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS;FIXTURES;LABELS;ENV" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE Qt6::Test ${T_LIBS})
  add_test(NAME ${T_NAME} COMMAND ${T_NAME})
  set(home "${KETTERBLOOM_TEST_HOME_ROOT}/${T_NAME}")
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 300)
  endif()
  set_tests_properties(${T_NAME} PROPERTIES
    TIMEOUT ${T_TIMEOUT}
    ENVIRONMENT "HOME=${home};XDG_CONFIG_HOME=${home}/.config;XDG_DATA_HOME=${home}/.local/share;XDG_CACHE_HOME=${home}/.cache;XDG_DOCUMENTS_DIR=${home}/Documents;QT_QPA_PLATFORM=offscreen;OPENAI_API_KEY=;KQ_REALTIME_URL=;KETTERBLOOM_TEST_HOME=${home};KETTERBLOOM_SOURCE_DIR=${CMAKE_SOURCE_DIR};KETTERBLOOM_BINARY_DIR=${CMAKE_BINARY_DIR};${T_ENV}")
  if(T_FIXTURES)
    set_tests_properties(${T_NAME} PROPERTIES FIXTURES_REQUIRED "${T_FIXTURES}")
  endif()
  if(T_LABELS)
    set_tests_properties(${T_NAME} PROPERTIES LABELS "${T_LABELS}")
  endif()
  # A fresh home for every run.
  add_custom_command(TARGET ${T_NAME} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E rm -rf "${home}"
    COMMAND ${CMAKE_COMMAND} -E make_directory "${home}")
endfunction()

# kb_add_benchmark(NAME <name> SOURCES <files...> LIBS <targets...> [ARGS <args...>])
# Builds a benchmark executable and hooks it into the `bench` target, which runs every
# benchmark in turn and prints its figures. Benchmarks are never part of CTest.
if(NOT TARGET bench)
  add_custom_target(bench COMMENT "Running benchmarks")
endif()
function(kb_add_benchmark)
  cmake_parse_arguments(B "" "NAME" "SOURCES;LIBS;ARGS" ${ARGN})
  add_executable(${B_NAME} ${B_SOURCES})
  target_link_libraries(${B_NAME} PRIVATE ${B_LIBS})
  set_target_properties(${B_NAME} PROPERTIES EXCLUDE_FROM_ALL ON)
  add_custom_target(run_${B_NAME}
    COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen KETTERBLOOM_SOURCE_DIR=${CMAKE_SOURCE_DIR} KETTERBLOOM_BINARY_DIR=${CMAKE_BINARY_DIR} $<TARGET_FILE:${B_NAME}> ${B_ARGS}
    DEPENDS ${B_NAME}
    USES_TERMINAL
    COMMENT "Benchmark ${B_NAME}")
  add_dependencies(bench run_${B_NAME})
endfunction()

# PocketSphinx: Debian's .pc file names an include folder that does not exist, so
# pkg_check_modules(IMPORTED_TARGET) fails; build the imported target by hand.
if(NOT TARGET Ketterbloom::PocketSphinx)
  find_path(POCKETSPHINX_INCLUDE_DIR pocketsphinx.h PATH_SUFFIXES pocketsphinx)
  find_path(SPHINXBASE_INCLUDE_DIR sphinxbase/err.h PATH_SUFFIXES x86_64-linux-gnu aarch64-linux-gnu)
  find_library(POCKETSPHINX_LIBRARY pocketsphinx)
  find_library(SPHINXBASE_LIBRARY sphinxbase)
  execute_process(COMMAND ${PKG_CONFIG_EXECUTABLE} --variable=modeldir pocketsphinx
                  OUTPUT_VARIABLE POCKETSPHINX_MODELDIR OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(POCKETSPHINX_INCLUDE_DIR AND SPHINXBASE_INCLUDE_DIR AND POCKETSPHINX_LIBRARY AND SPHINXBASE_LIBRARY)
    add_library(Ketterbloom::PocketSphinx INTERFACE IMPORTED GLOBAL)
    set_target_properties(Ketterbloom::PocketSphinx PROPERTIES
      INTERFACE_INCLUDE_DIRECTORIES "${POCKETSPHINX_INCLUDE_DIR};${SPHINXBASE_INCLUDE_DIR};${SPHINXBASE_INCLUDE_DIR}/sphinxbase"
      INTERFACE_LINK_LIBRARIES "${POCKETSPHINX_LIBRARY};${SPHINXBASE_LIBRARY}"
      INTERFACE_COMPILE_DEFINITIONS "KETTERBLOOM_POCKETSPHINX_MODELDIR=\"${POCKETSPHINX_MODELDIR}\"")
  else()
    message(FATAL_ERROR "PocketSphinx development files not found: run scripts/install-deps")
  endif()
endif()
