// SPDX-License-Identifier: MIT
#include "X3dText.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// The end of an element's start tag, behind its '>'; -1 where there is none.
int endOfTag(const QByteArray &text, int begin)
{
    char quote = 0;
    for (int at = begin; at < text.size(); ++at) {
        const char c = text.at(at);
        if (quote != 0)
            quote = c == quote ? 0 : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        else if (c == '>')
            return at + 1;
    }
    return -1;
}

/// Where the value of an attribute lies in a start tag, without its quotes; empty where the tag does not have it.
struct Span
{
    int begin = 0;
    int end = 0;
};

Span valueOf(const QByteArray &tag, const QByteArray &attribute)
{
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    for (int at = 0; at < tag.size();) {
        const int equals = tag.indexOf('=', at);
        int quote = equals + 1;
        while (equals >= 0 && quote < tag.size() && isSpace(tag.at(quote)))
            ++quote;
        if (equals < 0 || quote >= tag.size() || (tag.at(quote) != '"' && tag.at(quote) != '\''))
            return {};
        const int end = tag.indexOf(tag.at(quote), quote + 1);
        if (end < 0)
            return {};
        int nameEnd = equals;
        while (nameEnd > at && isSpace(tag.at(nameEnd - 1)))
            --nameEnd;
        int nameBegin = nameEnd;
        while (nameBegin > at && !isSpace(tag.at(nameBegin - 1)))
            --nameBegin;
        if (tag.mid(nameBegin, nameEnd - nameBegin) == attribute)
            return {quote + 1, end};
        at = end + 1;
    }
    return {};
}

/// The strings of a list. One without quotes is a single string.
QStringList stringsOf(const QByteArray &value)
{
    QString text = QString::fromUtf8(value);
    text.replace(QLatin1String("&quot;"), QLatin1String("\""))
        .replace(QLatin1String("&apos;"), QLatin1String("'"))
        .replace(QLatin1String("&lt;"), QLatin1String("<"))
        .replace(QLatin1String("&gt;"), QLatin1String(">"))
        .replace(QLatin1String("&amp;"), QLatin1String("&"));
    if (!text.contains(QLatin1Char('"')))
        return {text.trimmed()};
    QStringList strings;
    const QStringList parts = text.split(QLatin1Char('"')); // every second one is in quotes
    for (int i = 1; i < parts.size(); i += 2) {
        if (!parts[i].trimmed().isEmpty())
            strings.append(parts[i].trimmed());
    }
    return strings;
}

} // namespace

X3dText::X3dText(const QByteArray &text, const QString &file)
    : m_file(file)
{
    int copied = 0;
    for (int begin = text.indexOf('<'); begin >= 0; begin = text.indexOf('<', begin + 1)) {
        int nameEnd = begin + 1;
        while (nameEnd < text.size() && QChar::isLetter(uint(uchar(text.at(nameEnd)))))
            ++nameEnd;
        const QByteArray name = text.mid(begin + 1, nameEnd - begin - 1);
        if (name != "ImageTexture" && name != "Inline" && name != "MetadataString")
            continue;
        const int end = endOfTag(text, nameEnd);
        if (end < 0)
            break;
        const QByteArray tag = text.mid(nameEnd, end - nameEnd);
        const Span span = valueOf(tag, name == "MetadataString" ? "value" : "url");
        if (span.end <= span.begin)
            continue;
        m_plain += text.mid(copied, nameEnd + span.begin - copied);
        copied = nameEnd + span.end;
        const QByteArray value = tag.mid(span.begin, span.end - span.begin);
        if (name == "ImageTexture")
            m_plain += plainImage(value);
        else if (name == "Inline")
            m_plain += plainInline(value);
    }
    if (copied > 0)
        m_plain += text.mid(copied);
}

QByteArray X3dText::plainImage(const QByteArray &places)
{
    const QString standIn = QStringLiteral("image-%1").arg(m_places.size());
    QStringList files = stringsOf(places);
    files.erase(std::remove_if(files.begin(), files.end(),
                    [](const QString &name) { return name.contains(QLatin1String("://")); }),
        files.end()); // nothing is fetched
    m_places.insert(standIn, files.isEmpty() ? stringsOf(places) : files);
    return standIn.toLatin1();
}

/// The first of some places where a file is; null, with a warning, where there is none.
QByteArray X3dText::plainInline(const QByteArray &places)
{
    const QStringList names = stringsOf(places);
    for (const QString &name : names) {
        const bool isWhole = !name.contains(QLatin1Char(' ')); // assimp takes the first word
        if (isWhole && QFileInfo(QFileInfo(m_file).absoluteDir().filePath(name)).isFile())
            return name.toUtf8();
    }
    m_warnings.append(QStringLiteral("%1: its part \"%2\" is not there and is left out")
                          .arg(m_file, names.join(QStringLiteral("\", \""))));
    return {};
}

} // namespace Velmora::Kvz
