// SPDX-License-Identifier: MIT
#include "LogGenerator.h"

#include <QDateTime>
#include <QTimeZone>

#include <chrono>
#include <cstring>

namespace {
// 2024-01-15 10:00:00 UTC: the first time of a seeded run.
constexpr int64_t kFixedStartMs = 1705312800000LL;

struct Spec
{
    const char *user;
    int pid;
    int ppid;
    const char *name;
    int threads;
    QList<QByteArray> tags; // empty: the process does not log
};

const QList<Spec> &specs()
{
    static const QList<Spec> table = {
        {"root", 1, 0, "init", 1, {"init"}},
        {"root", 2, 0, "[kthreadd]", 1, {}},
        {"root", 312, 1, "ueventd", 1, {}},
        {"logd", 498, 1, "logd", 3, {"logd"}},
        {"system", 512, 1, "servicemanager", 1, {"servicemanager"}},
        {"system", 540, 1, "/system/bin/surfaceflinger", 6, {"SurfaceFlinger", "BufferQueueProducer"}},
        {"root", 601, 1, "zygote64", 1, {"Zygote"}},
        {"audioserver", 640, 1, "/system/bin/audioserver", 4, {"AudioFlinger", "AudioPolicyManager"}},
        {"media", 655, 1, "media.extractor", 2, {}},
        {"system", 1023, 601, "system_server", 20,
         {"ActivityManager", "WindowManager", "PackageManager", "InputDispatcher", "ActivityTaskManager",
          "BatteryService", "ConnectivityService", "PowerManagerService"}},
        {"u0_a45", 1250, 601, "com.android.systemui", 8, {"SystemUI", "StatusBar", "KeyguardViewMediator"}},
        {"radio", 1402, 601, "com.android.phone", 5, {"TelephonyManager", "RILJ"}},
        {"u0_a12", 1533, 601, "com.google.android.gms", 12, {"GmsClient", "Fitness", "GCM", "NetworkScheduler"}},
        {"u0_a12", 1580, 601, "com.google.android.gms.persistent", 6, {"GCoreUlr", "Icing"}},
        {"bluetooth", 1622, 601, "com.android.bluetooth", 4, {"BluetoothAdapter", "bt_btif"}},
        {"u0_a31", 2044, 601, "com.android.launcher3", 5, {"Launcher", "LauncherModel"}},
        {"u0_a120", 4711, 601, "com.example.shop", 9, {"ShopApi", "CartViewModel", "OkHttp", "chromium"}},
        {"u0_a121", 4802, 601, "com.example.chat", 7, {"ChatSocket", "MessageStore", "FirebaseMessaging"}},
        {"u0_a122", 5120, 601, "com.example.maps:navigation", 4, {"NavEngine", "GnssLocationProvider"}},
        {"shell", 6001, 1, "/system/bin/adbd", 3, {"adbd"}},
        {"shell", 6112, 6001, "logcat", 1, {}},
    };
    return table;
}

const char *const kShortTexts[] = {
    "Start proc for activity com.example.shop/.MainActivity: pid ",
    "Displayed com.example.shop/.CheckoutActivity: +",
    "onResume called, visible fragments=",
    "GC_CONCURRENT freed 2048K, 23% free, heap size ",
    "Skipped frames! The application may be doing too much work on its main thread: ",
    "setState: connected, retry count ",
    "Choreographer frame deadline missed by ms ",
    "HTTP 200 GET https://api.example.com/v2/items?page=",
    "Wakelock acquired: tag=*job*/com.example.chat id=",
    "Battery level changed: level=",
    "Input event injection took ms ",
    "Received broadcast android.intent.action.SCREEN_ON, receivers=",
    "Access denied finding property \"vendor.camera.aux.packagelist\" uid=",
    "Cache miss for key user_profile_",
    "Reconnecting websocket in ms ",
};

const char *const kJsonTexts[] = {
    R"({"event":"cart_update","items":[{"sku":"A-100","qty":2,"price":9.99},{"sku":"B-7","qty":1,"price":24.5}],"currency":"EUR","ok":true,"session":)",
    R"({"type":"message","from":"alice","to":"bob","body":"See you at 8?","meta":{"encrypted":false,"retries":0},"seq":)",
    R"(response={"status":"ok","data":{"user":{"id":42,"name":"Zoë","roles":["admin","dev"]},"flags":null},"elapsedMs":)",
};

const char *const kUnicodeTexts[] = {
    "Benutzer angemeldet: Jürgen Groß — Größe ändern ✓ #",
    "Сообщение доставлено получателю №",
    "東京駅へのルートを計算しました: 区間 ",
    "emoji payload 🎉🚀 received, count=",
    "Ελληνικά και العربية في سطر واحد ",
};

const char *const kErrorTexts[] = {
    "java.lang.IllegalStateException: Fragment not attached to a context. id=",
    "\tat com.example.shop.ui.CartFragment.onItemClicked(CartFragment.kt:",
    "FATAL EXCEPTION: OkHttp Dispatcher, code ",
    "Failed to connect to api.example.com/203.0.113.7:443 after ms ",
};

constexpr char kLevels[] = "VDDDDIIIIIIIWWWE";

template <size_t N> qsizetype countOf(const char *const (&)[N])
{
    return N;
}

// Writes into space reserved up front: appending byte by byte to a QByteArray costs more than the
// whole rest of a line.
struct LineWriter
{
    char *p;

    void put(char c) { *p++ = c; }
    void put(const char *text, size_t size)
    {
        std::memcpy(p, text, size);
        p += size;
    }
    void put(const char *text) { put(text, std::strlen(text)); }
    void put(const QByteArray &text) { put(text.constData(), size_t(text.size())); }
    void number(uint64_t value, int width = 0)
    {
        char digits[24];
        int n = 0;
        do {
            digits[n++] = char('0' + value % 10);
            value /= 10;
        } while (value > 0);
        for (int i = n; i < width; ++i)
            *p++ = ' ';
        while (n > 0)
            *p++ = digits[--n];
    }
};

// Longest line appendLine writes: header, tag and the longest message (about 2,100 bytes).
constexpr qsizetype kMaxLine = 4096;
} // namespace

LogGenerator::LogGenerator(uint64_t seed)
    : m_state(seed ? seed * 0x9E3779B97F4A7C15ULL
                   : uint64_t(std::chrono::steady_clock::now().time_since_epoch().count()) | 1),
      m_deterministic(seed != 0)
{
    for (const Spec &spec : specs()) {
        m_processes.append({spec.user, spec.pid, spec.ppid, spec.name});
        if (!spec.tags.isEmpty())
            m_writers.append({int(m_processes.size() - 1), spec.threads, spec.tags});
    }
    m_lastMs = m_deterministic ? kFixedStartMs : QDateTime::currentMSecsSinceEpoch();
}

QByteArray LogGenerator::processTable() const
{
    QByteArray out = "USER           PID  PPID     VSZ    RSS WCHAN            ADDR S NAME\n";
    for (const Process &p : m_processes) {
        const QByteArray row = QStringLiteral("%1 %2 %3 %4 %5 %6 %7 S %8\n")
                                   .arg(QString::fromLatin1(p.user), -10)
                                   .arg(p.pid, 8)
                                   .arg(p.ppid, 5)
                                   .arg(1000000 + p.pid * 37, 8)
                                   .arg(20000 + p.pid * 3, 6)
                                   .arg(QStringLiteral("SyS_epoll_wait"), -16)
                                   .arg(0, 4)
                                   .arg(QString::fromLatin1(p.name))
                                   .toLatin1();
        out.append(row);
    }
    return out;
}

QByteArray LogGenerator::oldProcessTable() const
{
    QByteArray out = "USER      PID   PPID  VSIZE  RSS   WCHAN              PC  NAME\n";
    for (const Process &p : m_processes) {
        const QByteArray row = QStringLiteral("%1 %2 %3 %4 %5 ffffffff 00000000 S %6\n")
                                   .arg(QString::fromLatin1(p.user), -9)
                                   .arg(p.pid, -5)
                                   .arg(p.ppid, -5)
                                   .arg(100000 + p.pid * 7, -6)
                                   .arg(20000 + p.pid * 3, -5)
                                   .arg(QString::fromLatin1(p.name))
                                   .toLatin1();
        out.append(row);
    }
    return out;
}

uint64_t LogGenerator::random()
{
    // xorshift64*: fast, and identical across runs for one seed.
    m_state ^= m_state >> 12;
    m_state ^= m_state << 25;
    m_state ^= m_state >> 27;
    return m_state * 0x2545F4914F6CDD1DULL;
}

void LogGenerator::startInPast(int lines)
{
    if (m_deterministic || lines <= 0)
        return;
    m_lastMs -= int64_t(lines) * 40;
    m_pastLines = lines;
}

int64_t LogGenerator::nextTimeMs()
{
    // Seeded runs and the pre-filled past advance by small steps; live lines follow the wall clock.
    int64_t next;
    if (m_deterministic) {
        next = m_lastMs + int64_t(random() % 4);
    } else if (m_pastLines > 0) {
        --m_pastLines;
        next = m_lastMs + int64_t(random() % 80);
    } else {
        next = std::max<int64_t>(m_lastMs, QDateTime::currentMSecsSinceEpoch());
    }
    m_lastMs = next;
    return next;
}

void LogGenerator::appendTimePrefix(char *&out, int64_t ms)
{
    const int64_t second = ms / 1000;
    if (second != m_cachedSecond) {
        m_cachedSecond = second;
        const QDateTime time = m_deterministic
                                   ? QDateTime::fromSecsSinceEpoch(second, QTimeZone::utc())
                                   : QDateTime::fromSecsSinceEpoch(second);
        const QByteArray text = time.toString(QStringLiteral("MM-dd HH:mm:ss.")).toLatin1();
        std::memcpy(m_secondPrefix, text.constData(), std::min<size_t>(size_t(text.size()), 15));
    }
    std::memcpy(out, m_secondPrefix, 15);
    const int millis = int(ms % 1000);
    out[15] = char('0' + millis / 100);
    out[16] = char('0' + millis / 10 % 10);
    out[17] = char('0' + millis % 10);
    out += 18;
}

qsizetype LogGenerator::appendLine(QByteArray &out)
{
    const qsizetype start = out.size();
    out.resize(start + kMaxLine);
    char *const begin = out.data() + start;
    LineWriter w{begin};

    const uint64_t r = random();
    const Writer &writer = m_writers[qsizetype(r % uint64_t(m_writers.size()))];
    const Process &process = m_processes[writer.process];
    const int tid = process.pid + int((r >> 8) % uint64_t(writer.threads));
    const QByteArray &tag = writer.tags[qsizetype((r >> 16) % uint64_t(writer.tags.size()))];
    char level = kLevels[(r >> 24) % 16];
    const unsigned kind = unsigned((r >> 32) % 100);
    if (kind >= 97)
        level = (kind == 99 && (r >> 40) % 8 == 0) ? 'F' : 'E';

    appendTimePrefix(w.p, nextTimeMs());
    w.put(' ');
    w.number(uint64_t(process.pid), 5);
    w.put(' ');
    w.number(uint64_t(tid), 5);
    w.put(' ');
    w.put(level);
    w.put(' ');
    w.put(tag);
    for (qsizetype i = tag.size(); i < 8; ++i)
        w.put(' ');
    w.put(": ", 2);

    const uint64_t number = (r >> 44) % 100000;
    if (m_sequence) {
        w.put("seq ");
        w.number(m_lines);
    } else if (kind < 70) {
        w.put(kShortTexts[(r >> 40) % uint64_t(countOf(kShortTexts))]);
        w.number(number);
    } else if (kind < 82) {
        w.put(kJsonTexts[(r >> 40) % uint64_t(countOf(kJsonTexts))]);
        w.number(number);
        w.put('}');
    } else if (kind < 91) {
        w.put(kUnicodeTexts[(r >> 40) % uint64_t(countOf(kUnicodeTexts))]);
        w.number(number);
    } else if (kind < 97) {
        // A long message, as apps dump request bodies: 300 to about 2,100 characters.
        w.put("payload dump ");
        const int words = 30 + int(number % 200);
        for (int i = 0; i < words; ++i) {
            w.put("chunk", 5);
            w.number(uint64_t(i));
            w.put(i % 10 == 9 ? ';' : ',');
        }
    } else {
        w.put(kErrorTexts[(r >> 40) % uint64_t(countOf(kErrorTexts))]);
        w.number(number);
        w.put(')');
    }
    w.put('\n');
    const qsizetype length = w.p - begin;
    out.resize(start + length);
    ++m_lines;
    return length;
}
