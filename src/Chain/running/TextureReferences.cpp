// SPDX-License-Identifier: MIT
#include <Chain/running/TextureReferences.h>

#include <Chain/running/ObjectIn.h>
#include <Chain/running/PassSlot.h>
#include <Core/RenderPass.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>

namespace Velmora::Kvz {

void TextureReferences::hold(Texture *texture, bool isCounted)
{
    if (!isCounted)
        m_manager->addTempTextureRef(texture, 1);
    for (Held &other : m_held) {
        if (other.texture == texture) {
            other.before += isCounted ? 0 : 1;
            ++other.inputs;
            return;
        }
    }
    const int references = m_manager->tempTextureRefs(texture);
    if (references >= 0)
        m_held.append({texture, references, 1});
}

void TextureReferences::balance(const PassSlot &slot)
{
    for (const Held &held : m_held) {
        int expected = held.before - held.inputs;
        for (size_t i = 0; i < slot.outputs.size(); ++i) {
            if (slot.info->outputs[int(i)].type == ValueType::Texture
                && objectIn<Texture>(slot.active->output(int(i))) == held.texture)
                expected += slot.outputs[i].references();
        }
        const int actual = m_manager->tempTextureRefs(held.texture);
        if (actual > expected)
            m_manager->releaseTempTextureRef(held.texture, actual - expected);
        else if (actual >= 0)
            m_manager->addTempTextureRef(held.texture, expected - actual);
    }
}

} // namespace Velmora::Kvz
