# How everything here is compiled.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# A shared library exports what its public headers declare, and nothing else.
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

# The type checks that end the daemon are asserts, so no build type may switch them off.
foreach(type RELEASE RELWITHDEBINFO MINSIZEREL)
  foreach(lang C CXX)
    string(REGEX REPLACE "[-/]D *NDEBUG" "" CMAKE_${lang}_FLAGS_${type} "${CMAKE_${lang}_FLAGS_${type}}")
  endforeach()
endforeach()

# Messages name files by their place in the tree, on whatever machine they were built.
add_compile_options("-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=")

if(VX_SANITIZE)
  add_compile_options(-fsanitize=${VX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VX_SANITIZE})
endif()
if(VX_COVERAGE)
  add_compile_options(--coverage -O0)
  add_link_options(--coverage)
endif()

# All headers that the build makes: clang-tidy reads our sources with them.
add_custom_target(generated_headers)

# Warnings for our own code; generated code is compiled without them.
function(vx_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  if(VX_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# vx_protobuf(<target> <file>): an object library of the code generated from a .proto file, compiled without warnings. Its
# header is included by the path of the .proto file from the root.
function(vx_protobuf target file)
  get_filename_component(path "${file}" ABSOLUTE)
  file(RELATIVE_PATH path "${PROJECT_SOURCE_DIR}" "${path}")
  string(REGEX REPLACE "\\.proto$" "" base "${path}")
  set(out "${CMAKE_BINARY_DIR}/generated")
  file(MAKE_DIRECTORY "${out}")
  add_custom_command(OUTPUT "${out}/${base}.pb.cc" "${out}/${base}.pb.h"
    COMMAND protobuf::protoc "--cpp_out=${out}" "--proto_path=${PROJECT_SOURCE_DIR}" "${path}"
    WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
    DEPENDS "${PROJECT_SOURCE_DIR}/${path}" COMMENT "Generating ${base}.pb.cc" VERBATIM)
  add_custom_target(${target}_generated DEPENDS "${out}/${base}.pb.h")
  add_library(${target} OBJECT "${out}/${base}.pb.cc")
  add_dependencies(${target} ${target}_generated)
  add_dependencies(generated_headers ${target}_generated)
  target_link_libraries(${target} PUBLIC protobuf::libprotobuf)
endfunction()
