option(SENDOFF_TESTS "Build the tests" ON)
option(SENDOFF_BENCH "Build the benchmarks" OFF)
option(SENDOFF_FUZZ "Build the fuzz targets (clang only)" OFF)
set(SENDOFF_SANITIZE "" CACHE STRING "Sanitizers for everything, as in -fsanitize=")

set(SENDOFF_API_BASE_URL "https://api.quorvantile.example" CACHE STRING
    "Base URL of the release service's API, without a path")
set(SENDOFF_UPLOAD_BASE_URL "https://distribution.quorvantile.example" CACHE STRING
    "Base URL of the release service's upload host, without a path")
set(SENDOFF_CODE_MAPPING_BASE_URL "https://cm.quorvantile.example" CACHE STRING
    "Base URL of the code-mapping service, without a path")
set(SENDOFF_KITS_BASE_URL "https://kits.quorvantile.example" CACHE STRING
    "Base URL of the kits service, without a path")
set(SENDOFF_SETTINGS_PAGE_URL "https://www.quorvantile.example/settings/organizations" CACHE STRING
    "Web page on which people find their API key and build secret")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()
find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # Optimised, `"text" + string` is reported as an overlapping copy (GCC bug 105651).
  add_compile_options(-Wno-restrict)
endif()
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Joined source files look like headers to this one, which wants no unnamed namespaces in them.
  add_compile_options(-Wno-subobject-linkage)
endif()
if(SENDOFF_SANITIZE)
  add_compile_options(-fsanitize=${SENDOFF_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${SENDOFF_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented code confuses this check (GCC bug 105562, in std::regex).
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()
if(SENDOFF_FUZZ)
  # Counts the paths that a fuzzer's inputs take; the fuzzer itself is linked to the targets alone.
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(SENDOFF_LIBEXEC_DIRECTORY ${PROJECT_BINARY_DIR}/libexec/sendoff)
