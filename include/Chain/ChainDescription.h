// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/LightDescription.h>
#include <Host/Export.h>

#include <QtCore/QByteArray>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include <vector>

namespace Velmora::Kvz {

/// An output of a pass in a chain, written "pass.port".
struct KVZ_HOST_EXPORT ChainOutput
{
    QString pass; ///< Name of the pass in its chain.
    QString port; ///< Exact port name.

    QString toString() const;
    bool operator==(const ChainOutput &other) const { return pass == other.pass && port == other.port; }
    bool operator!=(const ChainOutput &other) const { return !(*this == other); }
};

/// Where an input takes its value by an explicit connection.
struct KVZ_HOST_EXPORT ChainSource
{
    enum class Kind {
        Output, ///< An output of an earlier pass: "pass.port".
        Previous, ///< What an output of any pass held at the end of the last frame, plain values only: "previous:pass.port".
        FrameValue, ///< A value of the frame: "frame:port".
        None ///< Nothing; the input keeps its default: "none".
    };

    Kind kind = Kind::None;
    QString pass; ///< Of Output and Previous.
    QString port; ///< Of all but None.

    static ChainSource output(const QString &pass, const QString &port);
    static ChainSource previous(const QString &pass, const QString &port);
    static ChainSource frameValue(const QString &port);
    static ChainSource none();

    /// The written form.
    QString toString() const;
    /// Reads the written form. False, with `source` untouched, for text in no such form.
    static bool fromString(const QString &text, ChainSource *source);

    bool operator==(const ChainSource &other) const;
    bool operator!=(const ChainSource &other) const { return !(*this == other); }
};

/// A pass in a chain.
struct KVZ_HOST_EXPORT ChainPass
{
    QString name; ///< Unique in the chain; neither "." nor ":" in it.
    QString className; ///< As PassRegistry knows it.
    bool enabled = true;
    QVariantMap options; ///< Construction options by name.
    QVariantMap values; ///< Values by input name. An invalid value says "null" and counts as set.
    QMap<QString, ChainSource> connections; ///< Explicit connections by input name.

    bool operator==(const ChainPass &other) const;
    bool operator!=(const ChainPass &other) const { return !(*this == other); }
};

/// A chain of passes as plain data: what a chain file holds.
///
/// ```json
/// {
///     "name": "tinted",
///     "description": "A gradient over the last frame's average colour.",
///     "passes": [
///         {"name": "background", "class": "GradientRenderPass",
///             "values": {"Kvz_QColor_ColorTop": "#404040"}},
///         {"name": "screen", "class": "TextureToScreenRenderPass",
///             "connections": {"Kvz_KvzTexture*_Texture": "background.Kvz_KvzTexture*_Frame"}}
///     ],
///     "exports": {"frame": "background.Kvz_KvzTexture*_Frame"}
/// }
/// ```
///
/// `"lights": ["directional:30,60", "spot:-60,40:cone=30"]` gives the chain lights; LightDescription says how they are
/// written. A pass may also have "enabled" (true unless said) and "options". "name" of a pass may be left out if its
/// class occurs once: it is then the class name. validateChain() says whether names and types are right.
struct KVZ_HOST_EXPORT ChainDescription
{
    QString name;
    QString description; ///< One sentence.
    QVector<ChainPass> passes; ///< In the order in which they run.
    std::vector<LightDescription> lights; ///< The frame's lights unless the host sets others.
    QMap<QString, ChainOutput> exports; ///< Outputs that the host reads after a frame, by a name of its choice.
    /// The folder that relative file names in options and values start from; empty: the working directory. loadChain()
    /// sets it. It is not part of a chain file, so toJson() and comparisons leave it out.
    QString folder;

    /// Index of a pass by name; -1 when there is none.
    int findPass(const QString &passName) const;
    QStringList passNames() const;

    /// Reads a chain. False, with `chain` untouched, for text that is not JSON (`error` then says line and column) and for a
    /// wrong structure (`error` then names the place, such as "passes[2].options").
    static bool fromJson(const QByteArray &json, ChainDescription *chain, QString *error);
    /// The chain as indented JSON. Values that are objects cannot be written and are left out.
    QByteArray toJson() const;

    bool operator==(const ChainDescription &other) const;
    bool operator!=(const ChainDescription &other) const { return !(*this == other); }
};

} // namespace Velmora::Kvz
