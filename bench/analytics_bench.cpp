// SPDX-License-Identifier: MIT
// What recording a usage event costs the calling (GUI) thread while the statistics server hangs and the
// disk is busy: AnalyticsHelper::logEvent only posts to the analytics thread. For contrast, the same
// event recorded by the client directly on the calling thread (its SQLite write included).
#include "Analytics/AnalyticsHelper.h"
#include "Analytics/Countly.h"
#include "Helpers/Settings.h"
#include "support/BenchEnv.h"
#include "support/BenchMain.h"

#include <QDir>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// A server that takes connections (the kernel's backlog does) and never answers a byte.
class SilentServer
{
public:
    SilentServer()
    {
        m_fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
        ::listen(m_fd, 64);
        socklen_t length = sizeof address;
        ::getsockname(m_fd, reinterpret_cast<sockaddr *>(&address), &length);
        m_port = ntohs(address.sin_port);
    }
    ~SilentServer() { ::close(m_fd); }
    QString url() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_port); }

private:
    int m_fd = -1;
    quint16 m_port = 0;
};

// Writes and syncs 4 MiB blocks into `folder` until destroyed.
class BusyDisk
{
public:
    explicit BusyDisk(const QString &folder)
        : m_path(QDir(folder).filePath(QStringLiteral("busy.bin")).toStdString())
        , m_thread([this] { run(); })
    {
    }
    ~BusyDisk()
    {
        m_stop = true;
        m_thread.join();
        ::unlink(m_path.c_str());
    }

private:
    void run()
    {
        const std::vector<char> block(4 << 20, 'x');
        while (!m_stop) {
            const int fd = ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            for (int i = 0; i < 16 && !m_stop; ++i) {
                if (::write(fd, block.data(), block.size()) < 0)
                    break;
                ::fdatasync(fd);
            }
            ::close(fd);
        }
    }

    std::string m_path;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

void reportLatency(benchmark::State &state, const std::vector<double> &micros)
{
    std::vector<double> sorted = micros;
    std::sort(sorted.begin(), sorted.end());
    if (sorted.empty())
        return;
    state.counters["p99_us"] = sorted[size_t(double(sorted.size() - 1) * 0.99)];
    state.counters["max_us"] = sorted.back();
}

template <typename Record> std::vector<double> timeCalls(benchmark::State &state, Record record)
{
    std::vector<double> micros;
    micros.reserve(100000);
    for (auto _ : state) {
        const auto begin = std::chrono::steady_clock::now();
        record();
        micros.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count());
    }
    return micros;
}

void BM_LogEventThroughHelper(benchmark::State &state)
{
    QTemporaryDir dir;
    SilentServer server;
    BusyDisk disk(dir.path());
    Settings::setValue(SettingsKey::analyticsServer, server.url());
    std::vector<double> micros;
    {
        AnalyticsHelper analytics({dir.path(), QStringLiteral("bench"), {}});
        analytics.registerApp();
        micros = timeCalls(state, [&] { analytics.logEvent(QStringLiteral("error-adb-not-running")); });
    }
    Settings::remove(SettingsKey::analyticsServer);
    reportLatency(state, micros);
}
BENCHMARK(BM_LogEventThroughHelper)->Iterations(5000)->Unit(benchmark::kMicrosecond);

void BM_RecordEventOnCallingThread(benchmark::State &state)
{
    QTemporaryDir dir;
    SilentServer server;
    BusyDisk disk(dir.path());
    Countly client(dir.filePath(QStringLiteral("Countly.sqlite")), Countly::Environment{});
    client.start(QString::fromLatin1(AnalyticsHelper::AppKey), server.url(), QStringLiteral("0").repeated(40), "{}");
    const std::vector<double> micros = timeCalls(state, [&] { client.recordEvent(QStringLiteral("error-adb-not-running")); });
    reportLatency(state, micros);
}
BENCHMARK(BM_RecordEventOnCallingThread)->Iterations(5000)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir home;
    bench::isolateUserFolders(home.path());
    qputenv("QUILLFERN_LOG_QUIET", "1");
    return bench::runBenchmarks(argc, argv);
}
