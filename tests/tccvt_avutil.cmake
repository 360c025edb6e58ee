# The timecode differential test runs our conversions against FFmpeg's libavutil, when it is installed.
if(TARGET tccvt_ffmpeg_test)
    target_link_libraries(tccvt_ffmpeg_test PRIVATE PkgConfig::AVUTIL)
endif()
