// SPDX-License-Identifier: MIT
#include <ExtraPasses/OpaqueModelProgram.h>

#include "steps/MaterialImages.h"
#include "steps/ModelProgram.h"

#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>

namespace Velmora::Kvz {

std::unique_ptr<ShaderProgram> makeOpaqueModelProgram(bool discardOnDiffuseAlpha)
{
    GLSLMacroProcessor macros;
    macros.addDefine(opaqueOnlyMacro, QStringLiteral("1"));
    return buildModelProgram(
        {QStringLiteral("out_Kd"), QStringLiteral("out_Ks"), QStringLiteral("out_Normal"), QStringLiteral("out_Id")},
        materialImagesVertexSource, materialImagesFragmentSource(discardOnDiffuseAlpha), &macros);
}

} // namespace Velmora::Kvz
