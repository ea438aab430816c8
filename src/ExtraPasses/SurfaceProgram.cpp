// SPDX-License-Identifier: MIT
#include "SurfaceProgram.h"

#include "steps/InputRead.h"
#include "steps/ModelProgram.h"

#include <GL/AutoBinder.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>
#include <GL/StandardAttributes.h>
#include <Scene/GPUModel.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/InstanceDataRegistry.h>
#include <Scene/ItemDraws.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

/// Models of fewer items are drawn by the loop, with the rows of each item as uniforms. Rows fetched from a buffer cost a software
/// rasteriser more for each vertex and pixel; so many items outweigh a frame full of pixels.
constexpr int manyItems = 8192;

const QString objectPlan = QStringLiteral("InstanceInfo");

/// Whether a program may have the model's own rows of a plan as a uniform.
bool areRowsOwn(const QString &plan)
{
    return !InstanceDataCollection::isBound(plan);
}

void addRowUniformMacro(GLSLMacroProcessor &macros, const QString &plan)
{
    macros.addDefine(InstanceDataRegistry::Instance().getPlan(plan).rowUniformMacro(), QStringLiteral("1"));
}

} // namespace

void addDrawNumberMacros(GLSLMacroProcessor &macros)
{
    macros.addDefine(QStringLiteral("KVZ_DRAW_NUMBER_VARYING"), QStringLiteral("1"));
    if (ItemDraws::isSupported())
        macros.addDefine(QStringLiteral("KVZ_DRAW_NUMBER_ARRAY"), QStringLiteral("1"));
}

QString surfacePlanOf(SurfaceKind kind)
{
    return kind == SurfaceKind::Physical ? QStringLiteral("PhysicalMaterial") : QStringLiteral("SurfaceMaterial");
}

QStringList surfaceFilesOf(SurfaceKind kind)
{
    return {kind == SurfaceKind::Physical ? QStringLiteral("PhysicalSurface.glslc") : QStringLiteral("Surface.glslc"),
        QStringLiteral("SurfaceTextures.glslc")};
}

std::unique_ptr<ShaderProgram> buildSurfaceProgram(GLSLMacroProcessor &macros, const QStringList &outputs,
    const QString &fragmentSource, const QStringList &fragmentFiles, SurfaceKind kind)
{
    auto program = std::make_unique<ShaderProgram>(nullptr);
    program->setMacroProcessor(&macros);
    program->setFragDataLocations(outputs);
    addModelVertexStage(*program, surfaceVertexSource);
    program->addShader(GL_FRAGMENT_SHADER, fragmentSource, QString());
    program->addShader(
        GL_FRAGMENT_SHADER, InstanceDataRegistry::Instance().getPlan(surfacePlanOf(kind)).glslc(), QString());
    const QStringList files = surfaceFilesOf(kind) + QStringList{QStringLiteral("KvzUtilities.glslc")} + fragmentFiles;
    for (const QString &file : files)
        program->addShaderFromFile(GL_FRAGMENT_SHADER, file);
    program->compile();
    program->link();
    program->setMacroProcessor(nullptr);
    return program;
}

SurfaceProgramVariants::SurfaceProgramVariants(Build build, SurfaceKind kind, Use use)
    : m_build(std::move(build)),
      m_kind(kind),
      m_use(use)
{ }

SurfaceProgramVariants::~SurfaceProgramVariants() = default;

void SurfaceProgramVariants::clear()
{
    m_programs.clear();
}

ShaderProgram &SurfaceProgramVariants::forModel(const GPUModel &model)
{
    const bool isPhysical = m_kind == SurfaceKind::Physical;
    const int features = isPhysical ? model.physicalFeatures() : model.surfaceFeatures();
    const bool hasManyItems = model.itemCount() >= manyItems;
    const bool hasColours = model.vertexExtras().colour >= 0;
    const bool isLooped = m_use == Use::Items && !hasManyItems;
    const bool hasObjectRow = isLooped && areRowsOwn(objectPlan);
    const bool hasSurfaceRow = isLooped && !isPhysical && areRowsOwn(surfacePlanOf(m_kind));
    const int key =
        features * 16 + int(hasSurfaceRow) * 8 + int(hasObjectRow) * 4 + int(hasColours) * 2 + int(hasManyItems);
    const auto known = m_programs.find(key);
    if (known != m_programs.end())
        return *known->second;
    // Whoever shows one model after another does not gather programs without end.
    constexpr size_t limit = 16;
    if (m_programs.size() == limit)
        m_programs.clear();
    GLSLMacroProcessor macros;
    macros.addDefine(QStringLiteral("KVZ_SURFACE_FEATURES"), QString::number(features));
    if (isPhysical)
        macros.addDefine(physicalMacro, QStringLiteral("1"));
    if (!hasColours)
        macros.addDefine(QStringLiteral("KVZ_NO_VERTEX_COLOURS"), QStringLiteral("1"));
    if (hasManyItems)
        addDrawNumberMacros(macros);
    if (hasObjectRow)
        addRowUniformMacro(macros, objectPlan);
    if (hasSurfaceRow)
        addRowUniformMacro(macros, surfacePlanOf(m_kind));
    return *(m_programs[key] = m_build(macros));
}

void setSurfaceCamera(ShaderProgram &program, const QMatrix4x4 &projection, const QMatrix4x4 &camera)
{
    program.setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
    program.setUniform(QStringLiteral("u_CameraMatrix"), camera);
    program.setUniform(QStringLiteral("u_NormalMatrix"), camera.inverted().transposed());
}

void setSurfaceState(const QSize &size)
{
    glViewport(0, 0, size.width(), size.height());
    glDisable(GL_BLEND);
    glDisable(GL_CULL_FACE);
    glDisable(GL_SCISSOR_TEST);
    glDisable(GL_STENCIL_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    glClearColor(0, 0, 0, 0);
    glClearDepth(1);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
}

void clearForSurfaces(const QSize &size)
{
    setSurfaceState(size);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

void drawSurfaces(GPUModel &model, ShaderProgram &program, SurfaceSelection selection)
{
    // What vertices have whose model has no such array.
    glVertexAttrib4f(GLuint(standardAttributeLocation(QStringLiteral("va_Color"))), 1, 1, 1, 1);
    glVertexAttrib4f(GLuint(standardAttributeLocation(QStringLiteral("va_TexCoord1"))), 0, 0, 0, 1);
    glVertexAttrib4f(GLuint(standardAttributeLocation(QStringLiteral("va_Tangent"))), 0, 0, 0, 0);
    const quint64 mask = selection == SurfaceSelection::All ? 0 : quint64(GPUModel::Transparent);
    const quint64 value = selection == SurfaceSelection::Transparent ? quint64(GPUModel::Transparent) : 0;
    model.draw(&program, value, mask, WindingCounterClockwise, false);
}

SurfaceScene SurfaceScene::read(const QVector<NamedValue<QVariant>> &inputs)
{
    return {inputValue<QRect>(inputs[0]).size(), inputValue<QMatrix4x4>(inputs[1]), inputValue<QMatrix4x4>(inputs[2]),
        inputValue<GPUModel *>(inputs[3])};
}

void SurfaceScene::draw(SurfaceProgramVariants &programs, SurfaceSelection selection,
    const std::function<void(ShaderProgram &)> &prepare) const
{
    if (!model)
        return;
    ShaderProgram &program = programs.forModel(*model);
    AutoBinder binder(&program);
    setSurfaceCamera(program, projection, camera);
    if (prepare)
        prepare(program);
    drawSurfaces(*model, program, selection);
}

} // namespace Velmora::Kvz
