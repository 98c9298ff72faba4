// SPDX-License-Identifier: MIT
// The message viewer's printers on a 1 MiB message (1,048,576 UTF-16 units), as a log line carrying a
// large JSON answer or an XML layout would bring. Goal: well under 50 ms each.
#include "Helpers/TextUtils.h"

#include <benchmark/benchmark.h>

namespace {

constexpr qsizetype MessageSize = 1 << 20;

// Compact JSON as apps log it: a prefix, objects in an array, strings with escapes, numbers, nesting.
QString jsonMessage()
{
    QString text = QStringLiteral("D/OkHttp: <-- 200 OK body=");
    text += QStringLiteral("{\"items\":[");
    for (int i = 0; text.size() < MessageSize - 200; ++i) {
        text += QStringLiteral(R"({"id":%1,"name":"item \"%1\", {braces} and: colons","tags":["a","b",null],)"
                               R"("price":%1.5,"nested":{"ok":true,"list":[1,2,3]}},)")
                    .arg(i);
    }
    text += QStringLiteral("{}]}");
    text.resize(MessageSize, u' ');
    return text;
}

// An XML document: declaration, nested elements with attributes, text and comments. No self-closing
// tags in the repeated part: each one indents everything after it one unit deeper for good, so the
// output (not the pass) grows with their count times the text's length.
QString xmlMessage()
{
    QString text = QStringLiteral(R"(<?xml version="1.0" encoding="utf-8"?><hierarchy rotation="0">)");
    for (int i = 0; text.size() < MessageSize - 200; ++i) {
        text += QStringLiteral(R"(<node index="%1" class="android.widget.TextView" bounds="[0,%1][1080,%1]">)"
                               R"(<!-- row %1 --><text>Row %1 &amp; more</text><img src="x%1.png"></img></node>)")
                    .arg(i);
    }
    text += QStringLiteral("</hierarchy>");
    text.resize(MessageSize, u' ');
    return text;
}

void print1MiB(benchmark::State &state, QString (*message)(), QString (*print)(const QString &))
{
    const QString text = message();
    for (auto _ : state)
        benchmark::DoNotOptimize(print(text));
    state.SetBytesProcessed(state.iterations() * MessageSize * 2);
}
BENCHMARK_CAPTURE(print1MiB, lenientJson, jsonMessage, TextUtils::lenientJsonPrettyPrinter)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(print1MiB, lenientXml, xmlMessage, TextUtils::lenientXMLPrettyPrinter)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
