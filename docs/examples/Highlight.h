// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/PassInfo.h>
#include <Chain/PassRegistry.h>
#include <GL/ShaderProgram.h>
#include <RenderPasses/ModelRenderPass.h>
#include <Scene/InstanceDataRegistry.h>

#include <epoxy/gl.h>

#include <memory>

using namespace Velmora::Kvz;

/// Adds the plan "Highlight": a colour for each item, with its strength from 0 to 1 in alpha.
inline bool addHighlightPlan()
{
    const InstanceDataPlan plan("Highlight", {{"getHighlight", InstanceDataPlan::Type::Vec4}});
    return InstanceDataRegistry::Instance().addPlan(plan);
}

/// A program for ModelRenderPass that tints items by the rows of "Highlight".
inline ShaderProgram *buildHighlightProgram()
{
    const QString vertexSource = R"(#version 150
#instancedata "InstanceInfo"

uniform mat4 u_CameraMatrix;
uniform mat4 u_ProjectionMatrix;
uniform mat4 u_NormalMatrix;

in vec3 va_Vertex;
in vec3 va_Normal;
in vec2 va_TexCoord;
out vec3 vo_Normal;
out vec2 vo_TexCoord;

void main()
{
    gl_Position = u_ProjectionMatrix * u_CameraMatrix * getModelMatrix() * vec4(va_Vertex, 1.0);
    vo_Normal = mat3(u_NormalMatrix) * mat3(getModelNormalMatrix()) * va_Normal;
    vo_TexCoord = va_TexCoord;
}
)";
    const QString fragmentSource = R"(#version 150
#include "TextureManager.glslh"
#instancedata "OBJMaterial"
#instancedata "Highlight"

in vec3 vo_Normal;
in vec2 vo_TexCoord;
out vec4 out_Kd;
out vec4 out_Ks;
out vec3 out_Normal;
out vec4 out_Id;

void main()
{
    vec3 Kd = getKd() * managedTexture(getMap_Kd(), vo_TexCoord).rgb;
    vec4 highlight = getHighlight();
    out_Kd = vec4(mix(Kd, highlight.rgb, highlight.a), getD());
    out_Ks = vec4(getKs() * managedTexture(getMap_Ks(), vo_TexCoord).rgb, getNs());
    out_Normal = normalize(vo_Normal);
    out_Id = vec4(float(gl_PrimitiveID + 1));
}
)";
    const InstanceDataRegistry &plans = InstanceDataRegistry::Instance();
    auto *program = new ShaderProgram;
    program->setFragDataLocations({"out_Kd", "out_Ks", "out_Normal", "out_Id"});
    program->addShader(GL_VERTEX_SHADER, vertexSource, "highlight.vert");
    program->addShader(GL_VERTEX_SHADER, plans.getPlan("InstanceInfo").glslc(), "InstanceInfo");
    program->addShaderFromFile(GL_VERTEX_SHADER, "KvzUtilities.glslc");
    program->addShader(GL_FRAGMENT_SHADER, fragmentSource, "highlight.frag");
    program->addShader(GL_FRAGMENT_SHADER, plans.getPlan("OBJMaterial").glslc(), "OBJMaterial");
    program->addShader(GL_FRAGMENT_SHADER, plans.getPlan("Highlight").glslc(), "Highlight");
    program->addShaderFromFile(GL_FRAGMENT_SHADER, "TextureManager.glslc");
    program->addShaderFromFile(GL_FRAGMENT_SHADER, "KvzUtilities.glslc");
    if (!program->compile() || !program->link())
        qWarning("%s", qPrintable(program->log()));
    return program;
}

/// A class for chains: ModelRenderPass with that program.
inline PassInfo highlightModelPass()
{
    PassInfo info = *PassRegistry::standard().find("ModelRenderPass");
    info.className = "HighlightModelPass";
    info.summary = "Draws a model into material images, with items tinted.";
    info.create = [](const PassOptions &) {
        auto pass = std::make_unique<ModelRenderPass>();
        pass->setShaderProgram(buildHighlightProgram()); // The pass owns it.
        return pass;
    };
    return info;
}
