// Change notification: a value that announces its changes, a listener that registers for one message
// type, and the guard whose release ends the subscription.

#include <ole/misc/Notifier.h>

#include <cstdio>

// A volume level that tells its listeners when it changes.
class Volume : public Notifier {
public:
    void set(int level) {
        level_ = level;
        issueNotification(NotifyMsg("volume changed"), changedType());
    }
    int level() const { return level_; }

    // Message types are small integers interned from names, once per process.
    static int changedType() {
        static const int type = NotifyMsgTypeDictionary::instance().intern("volume changed");
        return type;
    }

private:
    int level_ = 0;
};

// Shows every change of one Volume for as long as it holds the guard.
class Meter {
public:
    explicit Meter(Volume& volume) : volume_(volume) {
        guard_ = volume.registerNotification(makeCallback(this, &Meter::changed), Volume::changedType());
    }
    // Releasing the guard deregisters the callback: later changes are not delivered.
    void stop() { guard_.reset(); }
    int seen() const { return seen_; }

private:
    // Runs synchronously, in the thread that changed the volume.
    int changed(const NotifyMsg& msg) {
        ++seen_;
        std::printf("meter: %s to %d\n", static_cast<const char*>(msg), volume_.level());
        return 0;
    }

    Volume& volume_;
    Qv::Ptr<Qv::Guard> guard_;
    int seen_ = 0;
};

int main() {
    Volume volume;
    Meter meter(volume);
    volume.set(3);
    volume.set(7);
    std::printf("registrations while subscribed: %u\n", volume.numRegistrations());

    meter.stop();
    volume.set(9);  // nobody is listening any more
    std::printf("registrations after the guard went: %u\n", volume.numRegistrations());
    std::printf("the meter saw %d changes, the volume is %d\n", meter.seen(), volume.level());
    return meter.seen() == 2 ? 0 : 1;
}
