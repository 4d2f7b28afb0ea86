# Everything comes from Debian packages (scripts/install-deps.sh installs them).
include(GNUInstallDirs)

# Android's liblog, Debian's host build: headers under /usr/include/android,
# the library in an android/ subfolder of the multiarch lib dir.
find_path(ANDROID_LOG_INCLUDE_DIR android/log.h PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
find_library(ANDROID_LOG_LIBRARY log
  PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
add_library(android::log UNKNOWN IMPORTED)
set_target_properties(android::log PROPERTIES
  IMPORTED_LOCATION ${ANDROID_LOG_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_LOG_INCLUDE_DIR})

find_path(LIBYUV_INCLUDE_DIR libyuv.h REQUIRED)
find_library(LIBYUV_LIBRARY yuv REQUIRED)
add_library(libyuv::yuv UNKNOWN IMPORTED)
set_target_properties(libyuv::yuv PROPERTIES
  IMPORTED_LOCATION ${LIBYUV_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${LIBYUV_INCLUDE_DIR})

# Little CMS, for the ICC profiles of picture files.
find_path(LCMS2_INCLUDE_DIR lcms2.h REQUIRED)
find_library(LCMS2_LIBRARY lcms2 REQUIRED)
add_library(lcms2::lcms2 UNKNOWN IMPORTED)
set_target_properties(lcms2::lcms2 PROPERTIES
  IMPORTED_LOCATION ${LCMS2_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${LCMS2_INCLUDE_DIR})

find_package(Threads REQUIRED)

if(MIVO_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(MIVO_BUILD_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
