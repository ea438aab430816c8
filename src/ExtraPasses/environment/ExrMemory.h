// SPDX-License-Identifier: MIT
#pragma once

#include <ImfIO.h>

#include <QtCore/QByteArray>

#include <Iex.h>
#include <algorithm>
#include <cstring>

namespace Velmora::Kvz {

/// OpenEXR files that lie in memory. The library throws, and so does this.
class ExrReading : public Imf::IStream
{
public:
    explicit ExrReading(const QByteArray &content)
        : Imf::IStream("image"),
          m_content(content)
    { }

    bool read(char target[], int count) override
    {
        if (count < 0 || quint64(count) > quint64(m_content.size()) - std::min(m_place, quint64(m_content.size())))
            throw IEX_NAMESPACE::InputExc("the file ends early");
        std::memcpy(target, m_content.constData() + m_place, size_t(count));
        m_place += quint64(count);
        return m_place < quint64(m_content.size());
    }
    uint64_t tellg() override { return m_place; }
    void seekg(uint64_t place) override { m_place = place; }

private:
    QByteArray m_content;
    quint64 m_place = 0;
};

class ExrWriting : public Imf::OStream
{
public:
    ExrWriting()
        : Imf::OStream("image")
    { }

    void write(const char source[], int count) override
    {
        const int end = int(m_place) + count;
        if (end > m_content.size())
            m_content.resize(end);
        std::memcpy(m_content.data() + m_place, source, size_t(count));
        m_place = quint64(end);
    }
    uint64_t tellp() override { return m_place; }
    void seekp(uint64_t place) override { m_place = place; }

    const QByteArray &content() const { return m_content; }

private:
    QByteArray m_content;
    quint64 m_place = 0;
};

} // namespace Velmora::Kvz
