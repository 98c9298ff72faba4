// SPDX-License-Identifier: MIT
// quillfern-loggen: writes a seeded, realistic Android log for benchmarks and tests.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

const char *const kTags[] = {"ActivityManager", "PackageManager", "WindowManager", "chromium", "OkHttp",
                             "SurfaceFlinger", "InputDispatcher", "ConnectivityService", "AudioFlinger",
                             "BluetoothAdapter", "GnssLocationProvider", "Zygote", "art", "System.err",
                             "ReactNativeJS", "FirebaseMessaging", "Choreographer", "ViewRootImpl[MainActivity]",
                             "NetworkSecurityConfig", "WifiStateMachine", "cr_MediaCodecBridge", "Glide",
                             "AndroidRuntime", "libc", "DEBUG", "Finsky", "GCoreUlr", "vold", "netd",
                             "hwservicemanager"};
const char *const kApps[] = {"com.example.shop", "com.google.android.gms", "system_server", "com.android.systemui",
                             "com.whatsapp", "org.mozilla.firefox", "com.spotify.music", "com.example.camera"};
const char *const kWords[] = {"start",  "stop",   "request", "response", "timeout", "connected", "cache",
                              "bitmap", "layout", "frame",   "skipped",  "thread",  "binder",    "service",
                              "intent", "user",   "token",   "session",  "retry",   "socket",    "écran",
                              "größe",  "日志",   "сеть",    "✓",        "🚀",      "null",      "0x7f3a"};

struct Options
{
    long long lines = 100000;
    unsigned long long seed = 1;
    std::string format = "threadtime";
    std::string out;
};

int usage()
{
    std::fprintf(stderr, "usage: quillfern-loggen --lines N --seed S [--format threadtime|brief|time|long|saved] OUT\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if ((a == "--lines" || a == "--seed" || a == "--format") && i + 1 < argc) {
            const char *v = argv[++i];
            if (a == "--lines")
                o.lines = std::atoll(v);
            else if (a == "--seed")
                o.seed = std::strtoull(v, nullptr, 10);
            else
                o.format = v;
        } else if (!a.empty() && a[0] != '-' && o.out.empty()) {
            o.out = a;
        } else {
            return usage();
        }
    }
    if (o.out.empty() || o.lines < 0)
        return usage();
    if (o.format != "threadtime" && o.format != "brief" && o.format != "time" && o.format != "long" &&
        o.format != "saved")
        return usage();
    FILE *f = o.out == "-" ? stdout : std::fopen(o.out.c_str(), "wb");
    if (!f) {
        std::fprintf(stderr, "quillfern-loggen: cannot write %s: %s\n", o.out.c_str(), std::strerror(errno));
        return 1;
    }
    std::mt19937_64 rng(o.seed);
    auto pick = [&rng](size_t n) { return size_t(rng() % n); };
    std::vector<int> pids;
    for (int i = 0; i < 40; ++i)
        pids.push_back(300 + int(pick(30000)));
    const char levels[] = "VDDDDIIIIIIWWEEF";
    long long ms = 0;
    std::string line;
    std::string buffer;
    buffer.reserve(1 << 20);
    char head[160];
    for (long long n = 0; n < o.lines; ++n) {
        ms += static_cast<long long>(pick(40));
        const long long t = ms + 3600LL * 1000 * 9;
        const int pidIndex = int(pick(pids.size()));
        const int pid = pids[size_t(pidIndex)];
        const int tid = pick(3) == 0 ? pid : pid + 1 + int(pick(200));
        const char level = levels[pick(sizeof(levels) - 1)];
        const char *tag = kTags[pick(sizeof(kTags) / sizeof(*kTags))];
        // Message: mostly a short sentence, sometimes JSON, sometimes long.
        line.clear();
        const size_t kind = pick(20);
        if (kind == 0) {
            line = "{\"event\":\"" + std::string(kWords[pick(28)]) + "\",\"id\":" + std::to_string(rng() % 100000) +
                   ",\"ok\":" + (pick(2) ? "true" : "false") + ",\"items\":[1,2,3],\"user\":{\"name\":\"" +
                   kWords[pick(28)] + "\"}}";
        } else {
            const size_t words = kind == 1 ? 40 + pick(30) : 4 + pick(9);
            for (size_t w = 0; w < words; ++w) {
                if (w)
                    line += ' ';
                line += kWords[pick(kind == 1 ? 28 : 23)];
                if (pick(5) == 0)
                    line += "=" + std::to_string(rng() % 10000);
            }
        }
        const int month = 1 + int((t / 86400000 / 28) % 12);
        const int day = 1 + int((t / 86400000) % 28);
        const int hh = int((t / 3600000) % 24), mm = int((t / 60000) % 60), ss = int((t / 1000) % 60),
                  mss = int(t % 1000);
        if (o.format == "threadtime") {
            std::snprintf(head, sizeof head, "%02d-%02d %02d:%02d:%02d.%03d %5d %5d %c %s: ", month, day, hh, mm, ss,
                          mss, pid, tid, level, tag);
        } else if (o.format == "saved") {
            std::snprintf(head, sizeof head, "%02d-%02d %02d:%02d:%02d.%03d %s(%d) %d %c %s:  ", month, day, hh, mm,
                          ss, mss, kApps[size_t(pidIndex) % 8], pid, tid, level, tag);
        } else if (o.format == "brief") {
            std::snprintf(head, sizeof head, "%c/%s(%5d): ", level, tag, pid);
        } else if (o.format == "time") {
            std::snprintf(head, sizeof head, "%02d-%02d %02d:%02d:%02d.%03d %c/%s(%5d): ", month, day, hh, mm, ss,
                          mss, level, tag, pid);
        } else {
            std::snprintf(head, sizeof head, "[ %02d-%02d %02d:%02d:%02d.%03d %5d:%5d %c/%s ]\n", month, day, hh, mm,
                          ss, mss, pid, tid, level, tag);
        }
        if (n % 5000 == 0 && o.format != "long")
            buffer += n % 10000 == 0 ? "--------- beginning of main\n" : "--------- beginning of system\n";
        buffer += head;
        buffer += line;
        buffer += o.format == "long" ? "\n\n" : "\n";
        if (buffer.size() > (1u << 20) - 4096) {
            std::fwrite(buffer.data(), 1, buffer.size(), f);
            buffer.clear();
        }
    }
    std::fwrite(buffer.data(), 1, buffer.size(), f);
    if (f != stdout && std::fclose(f) != 0) {
        std::fprintf(stderr, "quillfern-loggen: write failed: %s\n", std::strerror(errno));
        return 1;
    }
    return 0;
}
