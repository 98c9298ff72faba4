// SPDX-License-Identifier: MIT
// The message viewer's printers take any text: they only ever add line feeds and indentation, and the
// JSON one drops whitespace between tokens, so with those characters taken out the text is unchanged.
#include "FuzzInput.h"
#include "Helpers/TextUtils.h"

#include <cstdlib>

namespace {

QString without(QString text, QStringView characters)
{
    text.removeIf([characters](QChar c) { return characters.contains(c); });
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzSetUp();
    const QString text = fuzzText(data, size);
    const QString json = TextUtils::lenientJsonPrettyPrinter(text);
    if (without(json, u" \t\r\n") != without(text, u" \t\r\n"))
        abort();
    const QString xml = TextUtils::lenientXMLPrettyPrinter(text);
    if (text.size() >= 2 && without(xml, u" \n") != without(text, u" \n"))
        abort();
    return 0;
}
