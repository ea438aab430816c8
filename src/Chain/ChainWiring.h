// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/PassRegistry.h>

#include <QtCore/QSet>
#include <QtCore/QVector>

#include <memory>

namespace Velmora::Kvz {

/// Where an input takes its value, with all names resolved.
struct WiredInput
{
    enum class Source { Default, Value, Output, Previous, FrameValue };

    Source source = Source::Default;
    bool isExplicit = false; ///< By a connection that the chain names.
    int pass = -1; ///< Of Output and Previous.
    int output = -1; ///< Of Output and Previous.
    QString frameValue; ///< Of FrameValue: the name.
};

struct WiredPass
{
    std::shared_ptr<const PassInfo> info; ///< With the ports of its options; null for an unknown class.
    bool enabled = true;
    QVector<WiredInput> inputs; ///< Parallel to the inputs of the class.
};

/// Which input takes what, for a set of enabled passes.
using ChainWiring = QVector<WiredPass>;

/// Whether a value is a viewport without extent, into which no pass can draw. A null value is none.
bool isEmptyViewport(const InputInfo &input, const QVariant &value);

/// The value of an input, where it names an image file as an absolute path: a relative one starts in `folder`, or in the
/// working directory where that is empty. Other values come back as they are.
QVariant resolveImageFile(const InputInfo &input, const QVariant &value, const QString &folder);

/// Resolves the wiring of a chain. `frameValues` names the values that the frame has. What does not exist resolves to the
/// default; validateChain() says why.
ChainWiring wireChain(const ChainDescription &chain, const PassRegistry &registry, const QSet<QString> &frameValues);

} // namespace Velmora::Kvz
