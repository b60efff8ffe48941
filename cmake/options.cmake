# One interface target carries what every target of the project compiles with.
add_library(zd_options INTERFACE)
target_include_directories(zd_options INTERFACE "${PROJECT_SOURCE_DIR}/include")
target_compile_definitions(zd_options INTERFACE
  UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601 PSAPI_VERSION=2)
if(MSVC)
  target_compile_options(zd_options INTERFACE /W4 /WX /utf-8 /EHsc /permissive- /Zc:__cplusplus)
  target_compile_definitions(zd_options INTERFACE _CRT_SECURE_NO_WARNINGS)
  # Control flow guard, and shadow stacks where the processor has them. GCC has neither for Windows: SECURITY.md.
  target_compile_options(zd_options INTERFACE /guard:cf)
  target_link_options(zd_options INTERFACE /guard:cf /CETCOMPAT /HIGHENTROPYVA /DYNAMICBASE /NXCOMPAT)
else()
  target_compile_options(zd_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor -Wold-style-cast
    -Wcast-align -Wuseless-cast -Wduplicated-cond -Wlogical-op -Wdouble-promotion
    -Wformat=2 -Werror)
endif()
if(ZD_CHECKED)
  target_compile_definitions(zd_options INTERFACE _GLIBCXX_ASSERTIONS ZD_CHECK_LOCK_ORDER)
  target_compile_options(zd_options INTERFACE -fsanitize=undefined -fsanitize-undefined-trap-on-error)
endif()
