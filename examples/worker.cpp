// A worker thread that runs commands by priority. Work is wrapped in commands and inserted from the main
// thread; the worker drains its queue most urgent first (a smaller priority number is more urgent), and in
// arrival order within one priority.

#include <ole/misc/Decoupler.h>

#include <cstdio>
#include <future>
#include <string>

using QvDC::NoCtx;
using Safe = QvDC::ThreadSafetyTraits::ThreadSafe;
using Command = QvDC::SmplCmd<NoCtx, QvDC::NoTag, Safe>;

// One piece of work: prints its name when the worker runs it.
class Job : public QvDC::Receiver<Command> {
public:
    explicit Job(const char* name) : name_(name) {}
    bool executeCommand(Command&, NoCtx&) override {
        std::printf("ran %s\n", name_.c_str());
        return true;
    }

private:
    std::string name_;
};

// The worker's init command: holds the worker back until the main thread has queued everything, so that
// the order it runs them in shows the priorities rather than the timing.
class Gate : public QvDC::Receiver<Command> {
public:
    void open() { opened_.set_value(); }
    bool executeCommand(Command&, NoCtx&) override {
        ready_.wait();
        return true;  // false would end the worker before it ran anything
    }

private:
    std::promise<void> opened_;
    std::shared_future<void> ready_ = opened_.get_future().share();
};

int main() {
    Gate gate;
    Job save("save project"), thumbnails("draw thumbnails"), audio("mix audio"), backup("write backup");
    {
        QvCmdProcessors::WorkerThreadQueue<Safe> worker("example worker", Command(&gate),
                                                        QvDC::NullCommand<NoCtx, Safe>());
        worker.insert(Command(&thumbnails), 5);
        worker.insert(Command(&backup), 5);
        worker.insert(Command(&save), 0);
        worker.insert(Command(&audio), 2);
        std::printf("queued 4 commands\n");
        gate.open();
    }  // destroying the worker runs what is still queued, then ends its thread
    std::printf("worker finished\n");
    return 0;
}
