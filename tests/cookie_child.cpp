// A separate process for the counter-file tests: allocates serial cookies from the process jar, whose
// counter lives under $QUORVANE_HOME, and reports on standard output what it did.
//
//   cookie_child run N   allocate N cookies, print each number, exit normally (the jar flushes at exit)
//   cookie_child loop    print "I <process id>" and "S <first number>", then for ever: allocate, flush,
//                        print "F <last number>"

#include <ole/misc/CookieJar.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

void say(char tag, unsigned number) {
    char line[32];
    const int n = std::snprintf(line, sizeof line, "%c %u\n", tag, number);
    if (::write(STDOUT_FILENO, line, size_t(n)) != n) std::_Exit(3);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "run") == 0) {
        for (int i = std::atoi(argv[2]); i > 0; --i) say('N', newCookie('P', 0).getNumber());
        return 0;
    }
    if (argc == 2 && std::strcmp(argv[1], "loop") == 0) {
        CookieJar& jar = CookieJar::instance();
        say('I', unsigned(::getpid())), say('S', newCookie('P', 0).getNumber());
        for (unsigned round = 0;; ++round) {
            unsigned last = 0;
            for (unsigned i = 0; i <= round % 3; ++i) last = newCookie('P', 0).getNumber();
            jar.flush(), say('F', last);
        }
    }
    std::fprintf(stderr, "usage: cookie_child run N | loop\n");
    return 2;
}
