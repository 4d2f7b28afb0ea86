# Checks that the plugin library exports, as defined code, the class entry points the
# framework links against, with their exact parameter types.
# Usage: cmake -DLIBRARY=<path> -DNM=<nm> -P CheckExports.cmake
include(${CMAKE_CURRENT_LIST_DIR}/NmSymbols.cmake)
read_dynamic_symbols(--defined-only symbols)

set(class "mivo::ext::detail::VexaPluginBase")
set(buffers "mivo::core::MediaBuffer const&, mivo::core::MediaBuffer&")
set(option "std::shared_ptr<mivo::core::ImgpOption> const&")
set(expected
  "${class}::VexaPluginBase(std::shared_ptr<mivo::core::ImgpOption>)"
  "${class}::~VexaPluginBase()"
  "${class}::operator()(std::shared_ptr<mivo::core::MediaBuffer> const&, std::shared_ptr<mivo::core::MediaBuffer>&)"
  "${class}::flip(std::shared_ptr<mivo::core::MediaBuffer> const&, std::shared_ptr<mivo::core::MediaBuffer>&, ${option})")
foreach(operation rsz rszPd csc rot rszCsc rszRot cscRot crop cgc hdrToSdr)
  list(APPEND expected "${class}::${operation}(${buffers}, ${option})")
endforeach()

# One symbol per line: "<address> <kind> <demangled name>"; code is kind T (or W).
string(REPLACE "\n" ";" lines "${symbols}")
set(missing "")
foreach(symbol IN LISTS expected)
  set(found FALSE)
  foreach(line IN LISTS lines)
    string(REGEX MATCH "^[0-9a-fA-F]+ ([A-Za-z]) (.*)$" match "${line}")
    if(match AND CMAKE_MATCH_2 STREQUAL symbol AND CMAKE_MATCH_1 MATCHES "^[TW]$")
      set(found TRUE)
      break()
    endif()
  endforeach()
  if(NOT found)
    string(APPEND missing "\n  ${symbol}")
  endif()
endforeach()
if(missing)
  message(FATAL_ERROR "not exported by ${LIBRARY}:${missing}")
endif()
# Nothing else of the framework's header code leaves the library: besides the plugin's own
# API only the view registry, which every library in the process must share, and the plugin
# base's inline members, which come with the exported class in unoptimised builds.
set(allowed "mivo::ext::|mivo::core::(Plugin::|Singleton<|BufferExtension::|detail::Buffer(Identify|Alloc|Dealloc|Transform|Stringfy)<)")
set(leaked "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^[0-9a-fA-F]+ [A-Za-z] " "" name "${line}")
  set(prefix "^((vtable|typeinfo|typeinfo name|guard variable) for )?")
  # Standard library templates returning a mivo type are named after their return type.
  if(name MATCHES "^[^(]*[ *&]std::")
    continue()
  endif()
  if(name MATCHES "${prefix}mivo::" AND NOT name MATCHES "${prefix}(${allowed})")
    string(APPEND leaked "\n  ${name}")
  endif()
endforeach()
if(leaked)
  message(FATAL_ERROR "exported by ${LIBRARY} beyond its API:${leaked}")
endif()
list(LENGTH expected count)
message(STATUS "${count} entry points exported, nothing beyond the plugin's API")
