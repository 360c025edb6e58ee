// Logging and the fatal-error reporter (assertion lines are checked where the families use them).

#include <ole/runtime/Log.h>
#include <ole/runtime/Paths.h>

#include "support/StdoutCapture.h"
#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string logFileText() {
    const LightweightString<wchar_t> dir = getUserDataDirectory();
    return oletest::readFile(std::string(dir.begin(), dir.end()) + "/ole.log");
}

TEST(Log, EachFunctionReachesItsDestinationsAndNothingIsLost) {
    oletest::LogCapture capture;
    const std::string err = oletest::stderrOf([] {
        Log("file entry %d", 17), LogBoth("both entry %s", "x1");
        ole_splat("fatal entry %d", 99), DebugOut("debug entry %c", 'q');  // ole_splat reports and returns
    });
    const std::string file = logFileText();

    for (const char* text : {"file entry 17", "both entry x1", "fatal entry 99"})
        EXPECT_TRUE(capture.contains(text) && file.find(text) != std::string::npos) << text;
    for (const char* text : {"both entry x1", "fatal entry 99", "debug entry q"})
        EXPECT_NE(err.find(text), std::string::npos) << text;
    EXPECT_TRUE(err.find("file entry") == std::string::npos && file.find("debug entry") == std::string::npos)
        << "Log writes the file only, DebugOut standard error only";

    struct Keep : Qv::LogListener {
        std::string text;
        void logged(const char* piece) override { text += piece; }
    } removed;
    Qv::LogListener* before = Qv::setLogListener(&removed);
    EXPECT_EQ(Qv::setLogListener(before), &removed);

    const std::string longText(6000, 'L');
    Log("<%s>", longText.c_str());
    EXPECT_TRUE(capture.contains("<" + longText + ">") && removed.text.empty())
        << "a removed listener hears nothing";

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 50; ++i) Log("[worker %d entry %02d abcdefghijklmnopqrstuvwxyz]\n", t, i);
        });
    for (auto& thread : threads) thread.join();
    const std::string all = logFileText();
    for (int t = 0; t < 4; ++t)
        for (int i = 0; i < 50; ++i) {
            char entry[64];
            std::snprintf(entry, sizeof entry, "[worker %d entry %02d abcdefghijklmnopqrstuvwxyz]", t, i);
            ASSERT_NE(all.find(entry), std::string::npos) << entry;
        }
}

TEST(Log, DebugPoolLogsEveryBlockItHandsOut) {
    struct Traced : QvDebugPooledObject<Traced> {
        long value[3];
    };
    oletest::LogCapture capture;
    Traced* first = new Traced;
    delete first;
    Traced* again = new Traced;
    delete again;
    char reused[96];
    std::snprintf(reused, sizeof reused, "(32-byte blocks): reused block %p\n", static_cast<void*>(again));
    EXPECT_TRUE(again == first && capture.contains("(32-byte blocks): new block") && capture.contains(reused))
        << capture.text();
    EXPECT_NE(&Traced::pool(), &QvPooledObject<Traced>::pool()) << "a pool apart from the plain one";
}

}  // namespace
