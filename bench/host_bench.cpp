// Transfers on hosts as our users have them: K5C frames transferred back to
// back while other threads of the host, or other processes, keep the cores
// busy (spinning, or copying frames through memory), with no setting made
// by the host; and several cameras transferring at once from as many host
// threads. bench/speed_table.py compares them with the idle transfer.
#include "bench_camera.h"
#include "image/schedule/team.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

using namespace bench;

enum class Load { Spin, Copy };

// One unit of busy work: a while of spinning, or a copy of 6 MiB.
void work(Load load, std::vector<char> &from, std::vector<char> &to)
{
    if (load == Load::Copy) {
        std::memcpy(to.data(), from.data(), to.size());
        benchmark::DoNotOptimize(to.data());
    } else {
        for (int k = 0; k < 100000; ++k)
            benchmark::DoNotOptimize(k);
    }
}

// `count` threads of this process, or processes, busy until destroyed.
class BusyHost {
public:
    BusyHost(Load load, int count, bool processes)
    {
        for (int k = 0; k < count; ++k) {
            auto from = std::make_shared<std::vector<char>>(6 << 20, 1), to = std::make_shared<std::vector<char>>(6 << 20);
#ifndef _WIN32
            if (processes) {
                const pid_t child = fork();
                if (child == 0)
                    for (;;)
                        work(load, *from, *to);
                if (child > 0)
                    children_.push_back(child);
                continue;
            }
#else
            (void)processes;
#endif
            threads_.emplace_back([this, load, from, to] {
                while (!stop_.load(std::memory_order_relaxed))
                    work(load, *from, *to);
            });
        }
    }
    ~BusyHost()
    {
        stop_ = true;
        for (std::thread &t : threads_)
            t.join();
#ifndef _WIN32
        for (const pid_t child : children_) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
#endif
    }

private:
    std::atomic<bool> stop_{false};
    std::vector<std::thread> threads_;
#ifndef _WIN32
    std::vector<pid_t> children_;
#endif
};

OpenCamera &k5c()
{
    static OpenCamera camera(afterOpen(VCAM_K5C));
    return camera;
}

void transferBackToBack(benchmark::State &state, OpenCamera &camera)
{
    Destination destination;
    const Config config = afterOpen(VCAM_K5C);
    std::uint32_t frame = 0;
    for (int warm = 0; warm < 17 && camera.ok && !camera.warmed; ++warm) // render the live cycle once
        camera.ok = transferOnce(config, camera.dev, ++frame, destination.data());
    camera.warmed = true;
    for (auto _ : state)
        if (!camera.ok || !transferOnce(config, camera.dev, ++frame, destination.data())) {
            state.SkipWithError("transfer failed");
            break;
        }
}

// K5C frames while `count` threads or processes keep the cores busy; the
// team as a host finds it, no setting made.
void busy(benchmark::State &state, Load load, bool processes)
{
    quorin::image::team::setSize(0);
    OpenCamera &camera = k5c();
    const BusyHost host(load, static_cast<int>(state.range(0)), processes);
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // let the load start
    transferBackToBack(state, camera);
}

void BM_BusyThreadsSpinning(benchmark::State &state)
{
    busy(state, Load::Spin, false);
}
void BM_BusyThreadsCopying(benchmark::State &state)
{
    busy(state, Load::Copy, false);
}
BENCHMARK(BM_BusyThreadsSpinning)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BusyThreadsCopying)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();
#ifndef _WIN32
void BM_BusyProcessesSpinning(benchmark::State &state)
{
    busy(state, Load::Spin, true);
}
void BM_BusyProcessesCopying(benchmark::State &state)
{
    busy(state, Load::Copy, true);
}
BENCHMARK(BM_BusyProcessesSpinning)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BusyProcessesCopying)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

// The same camera on an idle host: on one thread (the yardstick for busy
// hosts), and on the team as a host finds it (argument 0).
void BM_Idle(benchmark::State &state)
{
    quorin::image::team::setSize(static_cast<std::uint32_t>(state.range(0)));
    transferBackToBack(state, k5c());
    quorin::image::team::setSize(0);
}
BENCHMARK(BM_Idle)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// n cameras, each transferring K5C frames back to back from a host thread
// of its own; the time is per frame of all of them together.
void BM_ManyCameras(benchmark::State &state)
{
    quorin::image::team::setSize(0);
    const auto n = static_cast<std::size_t>(state.range(0));
    constexpr int kFramesEach = 40;
    std::vector<std::unique_ptr<OpenCamera>> cameras;
    for (std::size_t k = 0; k < n; ++k)
        cameras.push_back(std::make_unique<OpenCamera>(afterOpen(VCAM_K5C)));
    std::vector<Destination> destinations(n);
    const Config config = afterOpen(VCAM_K5C);
    std::atomic<bool> failed{false};
    auto frames = [&](std::size_t k, int count) {
        for (int f = 0; f < count; ++f)
            if (!cameras[k]->ok || !transferOnce(config, cameras[k]->dev, 1, destinations[k].data()))
                failed = true;
    };
    for (std::size_t k = 0; k < n; ++k) // render the live cycles once
        frames(k, 17);
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        std::vector<std::thread> hosts;
        for (std::size_t k = 0; k < n; ++k)
            hosts.emplace_back(frames, k, kFramesEach);
        for (std::thread &t : hosts)
            t.join();
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(took.count() / static_cast<double>(n * kFramesEach));
    }
    if (failed)
        state.SkipWithError("transfer failed");
}
BENCHMARK(BM_ManyCameras)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond)->UseManualTime();

} // namespace
