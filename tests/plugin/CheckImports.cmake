# Checks that the plugin library imports from the framework library exactly what the
# framework's own libmivo.so supplies; anything else stays unresolved on a device and the
# plugin does not load.
# Usage: cmake -DLIBRARY=<path> -DNM=<nm> -P CheckImports.cmake
cmake_policy(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/NmSymbols.cmake)
read_dynamic_symbols(--undefined-only symbols)

set(base "mivo::core::detail::MediaBufferBase")
# Each of these must be imported, not compiled in.
set(required
  "${base}::MediaBufferBase(mivo::core::MediaBuffer::Form, mivo::MediaBufferType, std::shared_ptr<mivo::MediaFormat> const&, bool, std::shared_ptr<mivo::core::detail::BufferOption> const&)"
  "${base}::allocate()"
  "${base}::deallocate(void*)"
  "mivo::core::MediaBuffer::getTypeString[abi:cxx11]()"
  "mivo::core::BufferExtension::BufferExtension()"
  "mivo::core::BufferExtension::~BufferExtension()")
# The format classes and the plugin base are the framework's implementation as a whole.
set(framework_classes "^((vtable|typeinfo|typeinfo name) for )?mivo::((Mutable)?MediaFormat|core::Plugin)::")
set(framework_class_data "^(vtable|typeinfo|typeinfo name) for mivo::((Mutable)?MediaFormat|core::Plugin)$")

string(REPLACE "\n" ";" lines "${symbols}")
set(unexpected "")
set(imported "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^ *U " "" name "${line}")
  if(NOT name MATCHES "mivo::")
    continue()
  endif()
  list(FIND required "${name}" index)
  if(index GREATER -1)
    list(APPEND imported "${name}")
  elseif(NOT name MATCHES "${framework_classes}" AND NOT name MATCHES "${framework_class_data}")
    string(APPEND unexpected "\n  ${name}")
  endif()
endforeach()
set(missing "")
foreach(name IN LISTS required)
  if(NOT name IN_LIST imported)
    string(APPEND missing "\n  ${name}")
  endif()
endforeach()
if(unexpected OR missing)
  message(FATAL_ERROR "${LIBRARY}: imports the framework library does not supply:${unexpected}\n"
                      "framework pieces compiled in instead of imported:${missing}")
endif()
message(STATUS "imports exactly the framework-supplied set")
