// Asks the instrument once a second and prints the replies, also after it was unplugged. Enter ends it.
// x86_64-w64-mingw32-g++-posix -std=c++20 -static ask.cpp -I../include -L../x64 -lMorvaneClient -o ask.exe
#include "morvane_client.hpp"

#include <condition_variable>
#include <iostream>
#include <mutex>
#include <thread>

using namespace std::chrono_literals;

int main(int count, char** arguments)
try {
    const std::string text = count > 1 ? arguments[1] : "hello";
    morvane::Port port(3, 1);
    std::mutex mutex;
    std::condition_variable changed;
    bool ends = false;
    std::thread input([&] {
        std::cin.get();
        const std::lock_guard lock(mutex);
        ends = true;
        changed.notify_one();
        port.Cancel(); // ends a call that waits
    });
    for (std::unique_lock lock(mutex); !ends; changed.wait_for(lock, 1s)) {
        lock.unlock();
        int error = MORVANE_OK;
        const morvane::Bytes reply = port.Request(morvane::Of(text), 2s, error);
        if (error == MORVANE_OK) {
            std::cout << std::string(reply.begin(), reply.end()) << std::endl;
        } else if (error != MORVANE_E_CANCELLED) {
            std::cout << morvane_error_text(error) << std::endl;
            port.WaitReady(60s, error); // the library waits for the instrument and starts a new router
            if (error == MORVANE_OK) {
                port.Resync(500ms, 10s, error); // a late reply must not be taken for the next one
            }
        }
        lock.lock();
    }
    input.join();
} catch (const morvane::Error& error) {
    std::cout << error.what() << " (Windows error 0x" << std::hex << error.windowsError << ")" << std::endl;
    return 1;
}
