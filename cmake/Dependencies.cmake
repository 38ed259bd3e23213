# Every dependency comes from a Debian 12 package (scripts/install-deps.sh).
find_package(Qt6 6.4 REQUIRED COMPONENTS Core Gui Widgets DBus Svg Multimedia)
find_package(QCoro6 REQUIRED COMPONENTS Core)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(fmt REQUIRED)
find_package(PkgConfig REQUIRED)

pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET
  libavformat libavcodec libavdevice libavfilter libavutil libswscale libswresample)
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET
  xcb xcb-shm xcb-composite xcb-damage xcb-xfixes xcb-randr xcb-xinput xcb-xtest xcb-image
  xcb-icccm xcb-ewmh)
# Tests find other clients' shared memory segments through the X-Resource extension.
pkg_check_modules(XCB_RES IMPORTED_TARGET xcb-res)
pkg_check_modules(PULSE REQUIRED IMPORTED_TARGET libpulse)
# Echo cancellation for the microphone; without it the flag falls back to plain recording.
pkg_check_modules(WEBRTC_APM IMPORTED_TARGET webrtc-audio-processing)
pkg_check_modules(PIPEWIRE REQUIRED IMPORTED_TARGET libpipewire-0.3)
# Loudness measurement (EBU R 128) for normalised audio mixes.
pkg_check_modules(EBUR128 REQUIRED IMPORTED_TARGET libebur128)

# Debian's libyuv ships no pkg-config file.
find_path(LIBYUV_INCLUDE_DIR libyuv.h REQUIRED)
find_library(LIBYUV_LIBRARY yuv REQUIRED)
add_library(libyuv::libyuv UNKNOWN IMPORTED)
set_target_properties(libyuv::libyuv PROPERTIES
  IMPORTED_LOCATION ${LIBYUV_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${LIBYUV_INCLUDE_DIR})

if(TAVELQUISTON_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(TAVELQUISTON_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
