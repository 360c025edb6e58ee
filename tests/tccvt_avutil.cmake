# The timecode differential test runs our conversions against FFmpeg's libavutil.
pkg_check_modules(AVUTIL REQUIRED IMPORTED_TARGET libavutil)
target_link_libraries(tccvt_ffmpeg_test PRIVATE PkgConfig::AVUTIL)
