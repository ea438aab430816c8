// SPDX-License-Identifier: MIT
#include <Chain/running/FrameResults.h>

#include <Chain/ChainDescription.h>
#include <Chain/running/ObjectIn.h>
#include <Chain/running/SlotList.h>
#include <Core/RenderPass.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>
#include <Host/TextureCapture.h>
#include <Scene/ShadowMapManager.h>

#include <QtGui/QMatrix4x4>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// The layers in use of published shadow maps, laid out in one picture.
QImage captureShadowMaps(const QVariant &value, TextureDisplay display)
{
    const auto *const data = qobject_cast<ShadowMapManager::RenderData *>(value.value<QObject *>());
    if (!data || data->layerCount <= 0)
        return QImage();
    return captureTexture(data->projectionTexture(), display, QMatrix4x4(), data->layerCount);
}

/// A picture of how long the lists behind head pointers are, whose nodes are further outputs of their pass.
QImage captureLists(const PassSlot &slot, Texture *heads)
{
    const auto output = [&slot](const char *name) {
        const int index = slot.info->findOutput(QString::fromLatin1(name));
        return index < 0 ? QVariant() : slot.active->output(index);
    };
    return captureListLengths(
        heads, objectIn<Texture>(output("Kvz_KvzTexture*_NodeBuffer")), output("Kvz_int_NodeBufferWidth").toInt());
}

/// The projection that a pass draws with; the identity for one without.
QMatrix4x4 projectionOf(const PassSlot &slot)
{
    return slot.projectionInput >= 0 ? slot.inputValue(slot.projectionInput).value<QMatrix4x4>() : QMatrix4x4();
}

QImage captureOutput(const PassSlot &slot, int index)
{
    const OutputInfo &output = slot.info->outputs[index];
    const QVariant value = slot.active->output(index);
    const TextureDisplay display = output.texture.display;
    if (output.type == ValueType::ShadowMapData)
        return captureShadowMaps(value, display);
    Texture *const texture = objectIn<Texture>(value);
    if (display == TextureDisplay::ListLength)
        return captureLists(slot, texture);
    return captureTexture(texture, display, projectionOf(slot));
}

/// The texels of an image of an output.
TexelImage texelsOfOutput(const PassSlot &slot, int index)
{
    const OutputInfo &output = slot.info->outputs[index];
    if (output.type != ValueType::Texture || output.texture.display == TextureDisplay::ListLength)
        return {};
    TexelImage texels = captureTexels(objectIn<Texture>(slot.active->output(index)));
    if (output.texture.display == TextureDisplay::Depth)
        distancesFromDepth(&texels, projectionOf(slot));
    return texels;
}

} // namespace

bool FrameResults::holdsImage(const OutputInfo &output)
{
    return output.type == ValueType::Texture || output.type == ValueType::ShadowMapData;
}

void FrameResults::beginFrame()
{
    releaseExports();
    m_captures.clear();
}

bool FrameResults::wantsCaptures(const SlotList &slots) const
{
    return m_capturesAll || std::any_of(slots.begin(), slots.end(), [](const std::unique_ptr<PassSlot> &slot) {
        return std::any_of(
            slot->outputs.begin(), slot->outputs.end(), [](const SlotOutput &output) { return output.isCaptured; });
    });
}

void FrameResults::markCaptures(PassSlot *slot) const
{
    if (!m_capturesAll || !slot->enabled)
        return;
    for (size_t i = 0; i < slot->outputs.size(); ++i) {
        const OutputInfo &output = slot->info->outputs[int(i)];
        slot->outputs[i].isCaptured = output.texture.display != TextureDisplay::Hidden && holdsImage(output);
    }
}

void FrameResults::capture(PassSlot *slot)
{
    for (size_t i = 0; i < slot->outputs.size(); ++i) {
        if (!slot->outputs[i].isCaptured)
            continue;
        slot->outputs[i].isCaptured = false;
        const OutputInfo &output = slot->info->outputs[int(i)];
        const bool isTexture = output.type == ValueType::Texture;
        if (m_takesTexels && isTexture && !objectIn<Texture>(slot->active->output(int(i))))
            continue; // There is no image in this frame.
        PassCapture capture{slot->name, output.name, QImage(), TexelImage(), output.texture.kind};
        if (m_takesTexels)
            capture.texels = texelsOfOutput(*slot, int(i));
        else
            capture.image = captureOutput(*slot, int(i));
        m_captures.append(std::move(capture));
        if (isTexture)
            TextureManager::Instance()->releaseTempTextureRef(objectIn<Texture>(slot->active->output(int(i))), 1);
    }
}

void FrameResults::endFrame(const SlotList &slots, const Exports &exports)
{
    m_capturesAll = m_takesTexels = false;
    for (const ChainOutput &output : exports) {
        const PassSlot *producer = slots.find(output.pass);
        const QVariant value = producer->active->output(producer->info->findOutput(output.port));
        if (Texture *texture = objectIn<Texture>(value))
            m_exported.append(texture);
    }
    m_areExportsValid = true;
}

QVector<PassCapture> FrameResults::takeCaptures()
{
    QVector<PassCapture> taken;
    taken.swap(m_captures);
    return taken;
}

QVariant FrameResults::exportedValue(const SlotList &slots, const Exports &exports, const QString &name) const
{
    const auto output = exports.constFind(name);
    const PassSlot *slot = output == exports.constEnd() ? nullptr : slots.find(output->pass);
    if (!slot || !slot->active || !m_areExportsValid)
        return QVariant();
    return slot->active->output(slot->info->findOutput(output->port));
}

void FrameResults::releaseExports()
{
    TextureManager *owner = TextureManager::Instance();
    for (Texture *texture : qAsConst(m_exported))
        owner->releaseTempTextureRef(texture, 1);
    m_exported.clear();
    m_areExportsValid = false;
}

} // namespace Velmora::Kvz
