// Identity: cookies name persistent things (projects, containers, effects) and IdStamps name events. Both
// have a text form that reads back to the same value, and both come from allocators that keep them unique.

#include <ole/misc/Cookie.h>
#include <ole/misc/CookieJar.h>
#include <ole/misc/IdStamp.h>

#include <cstdio>

int main() {
    // The jar hands out serial cookies from a counter kept in the user's projects directory ("cookie.num")
    // and written back when the process ends (the first run warns that there is none yet and starts one).
    // A serial cookie records the number of the machine that made it.
    const Cookie project = newCookie('P', Cookie::kDefaultVersion);
    const Cookie other = newCookie('P', Cookie::kDefaultVersion);
    std::printf("two project cookies: %s %s (machine %u)\n", project.asString(false).c_str(),
                other.asString(false).c_str(), project.getMachineNumber());

    // A UUID cookie needs no counter: ask the jar for the UUID form.
    const Cookie container = CookieJar::instance().makeCookie('G', Cookie::eUUID, 0);
    std::printf("a container cookie: %s\n", container.asString(true).c_str());

    // Text reads back to an equal cookie. Text that is not a cookie gives the invalid cookie.
    const Cookie parsed(project.asString(false).c_str(), false);
    const Cookie bad("P00B002", false);
    std::printf("read back: %s, equal: %s\n", parsed.asString(false).c_str(),
                parsed == project ? "yes" : "no");
    std::printf("'P00B002' is %s\n", bad.valid() ? "a cookie" : "not a cookie");
    // Checking text without making a cookie is stricter: the machine code is case-sensitive.
    std::printf("'p00B002S' is well-formed: %s\n", Cookie::isValid("p00B002S") ? "yes" : "no");

    // An IdStamp: machine number, second of creation and a count within the second; no counter file.
    const IdStamp first;
    const IdStamp second;
    const IdStamp copy(first.asString().c_str());
    std::printf("two stamps: %s %s\n", first.asString().c_str(), second.asString().c_str());
    std::printf("stamps differ: %s, read back equal: %s\n", first != second ? "yes" : "no",
                copy == first ? "yes" : "no");

    return parsed == project && project != other && copy == first && !bad.valid() ? 0 : 1;
}
