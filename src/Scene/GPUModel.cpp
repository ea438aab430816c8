// SPDX-License-Identifier: MIT
#include <Scene/GPUModel.h>

#include "GPUModelPrivate.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <GL/TextureManager.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/InstanceDataRegistry.h>
#include <Scene/SurfaceFeature.h>

#include <epoxy/gl.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QString instanceInfoPlan = QStringLiteral("InstanceInfo");
const QString tavoInstancePlan = QStringLiteral("TavoInstance");
const QString materialPlan = QStringLiteral("OBJMaterial");
const QString surfacePlan = QStringLiteral("SurfaceMaterial");

/// The model's own rows for a plan, or null while a collection of the host replaces them.
Bindable *unlessReplaced(const QString &plan, Bindable *rows)
{
    return InstanceDataCollection::isBound(plan) ? nullptr : rows;
}

/// Sets GL_FRONT_FACE, and restores it at the end of a scope.
class FrontFace
{
public:
    FrontFace() { glGetIntegerv(GL_FRONT_FACE, &m_found); }
    ~FrontFace() { glFrontFace(GLenum(m_found)); }

    void set(GLenum sense)
    {
        if (sense != m_current)
            glFrontFace(sense);
        m_current = sense;
    }

private:
    Q_DISABLE_COPY(FrontFace)

    GLint m_found = GL_CCW;
    GLenum m_current = GL_NONE;
};

GLenum primitivesFor(const ShaderProgram *program)
{
    if (!program->hasTessellation())
        return GL_TRIANGLES;
    glPatchParameteri(GL_PATCH_VERTICES, 3);
    return GL_PATCHES;
}

} // namespace

MaterialRows::MaterialRows(const QString &sampler, ManagedTextures *images)
    : BufferTexture(sampler, GL_RGBA32F),
      m_images(images)
{ }

void MaterialRows::bind()
{
    BufferTexture::bind();
    m_images->bind();
}

void MaterialRows::unbind()
{
    m_images->unbind();
    BufferTexture::unbind();
}

GPUModel::Private::Private()
    : materialRows(InstanceDataRegistry::Instance().getPlan(materialPlan).samplerName(), &images),
      surfaceRows(InstanceDataRegistry::Instance().getPlan(surfacePlan).samplerName(), &images)
{ }

GPUModel::Private::~Private() = default;

void GPUModel::Private::addItem(
    const Range &range, const Bounds &itemMeshBounds, const QMatrix4x4 &matrix, quint64 itemFeatureFlags)
{
    ranges.push_back(range);
    featureFlags.push_back(itemFeatureFlags);
    marks.push_back(Mark::Drawn);
    isMirrored.push_back(matrix.determinant() < 0);
    meshBounds.push_back(itemMeshBounds);
    bounds.push_back(itemMeshBounds.mapped(matrix));
    objectRows.append(matrix);
}

void GPUModel::Private::finish()
{
    distinctFlags = featureFlags;
    std::sort(distinctFlags.begin(), distinctFlags.end());
    distinctFlags.erase(std::unique(distinctFlags.begin(), distinctFlags.end()), distinctFlags.end());
    queries = std::make_unique<OcclusionQueries>(itemCount());
}

void GPUModel::Private::setMatrix(int item, const QMatrix4x4 &matrix)
{
    const size_t i = size_t(item);
    isMirrored[i] = matrix.determinant() < 0;
    bounds[i] = meshBounds[i].mapped(matrix);
    areSceneBoundsStale = true;
    objectRows.setModel(item, matrix);
}

void GPUModel::Private::draw(ShaderProgram *program, TextureManager *manager, quint64 value, quint64 mask,
    WindingType winding, bool ignoreCulling)
{
    if (!program || !program->isLinked() || !geometry
        || glCheckFramebufferStatus(GL_DRAW_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
        return;
    objectRows.upload();
    AutoBinder programBinder(program);
    AutoBinder geometryBinder(geometry);
    AutoBinder infoBinder(unlessReplaced(instanceInfoPlan, objectRows.instanceInfo()));
    AutoBinder tavoBinder(unlessReplaced(tavoInstancePlan, objectRows.tavoInstance()));
    AutoBinder materialBinder(unlessReplaced(materialPlan, &materialRows));
    AutoBinder surfaceBinder(unlessReplaced(surfacePlan, &surfaceRows));
    AutoBinder imageBinder(&images); // also where rows of a host refer to them
    // The boxes have the model's own matrices only.
    const bool areMatricesOwn =
        !InstanceDataCollection::isBound(instanceInfoPlan) && !InstanceDataCollection::isBound(tavoInstancePlan);
    const int view = manager && areMatricesOwn ? queries->view(program) : -1;
    const bool queriesTell = view >= 0 && queries->tellHere();
    if (manager)
        manager->bindTextures(program);
    drawItems(program, value, mask, winding, ignoreCulling, queriesTell ? view : -1);
    if (manager)
        manager->unbindTextures(program);
    if (view >= 0)
        queries->testBoxes(
            view, bounds, [&](int item) { return isSelected(size_t(item), value, mask); }, queriesTell);
}

void GPUModel::Private::drawItems(
    const ShaderProgram *program, quint64 value, quint64 mask, WindingType winding, bool ignoreCulling, int view) const
{
    const bool isIndexed = !geometry->indexBO().isNull();
    const GLenum primitives = primitivesFor(program);
    const GLint drawIdLocation = program->getUniformLocation(QStringLiteral("u_DrawID"));
    const GLenum front = winding == WindingClockwise ? GL_CW : GL_CCW;
    const GLenum mirroredFront = winding == WindingClockwise ? GL_CCW : GL_CW;
    FrontFace frontFace;
    const size_t count = ranges.size();
    for (size_t item = 0; item < count; ++item) {
        if (!isSelected(item, value, mask))
            continue;
        const Mark mark = ignoreCulling ? Mark::Drawn : marks[item];
        if (mark == Mark::Culled)
            continue;
        const GLuint query = mark == Mark::Undecided ? queries->query(view, int(item)) : 0;
        if (query)
            glBeginConditionalRender(query, GL_QUERY_NO_WAIT);
        frontFace.set(isMirrored[item] ? mirroredFront : front);
        if (drawIdLocation >= 0)
            glUniform1ui(drawIdLocation, GLuint(item));
        const Range &range = ranges[item];
        if (isIndexed) {
            const quintptr offset = quintptr(range.first) * sizeof(quint32);
            // NOLINTNEXTLINE(performance-no-int-to-ptr): OpenGL takes the offset as a pointer.
            glDrawElements(primitives, GLsizei(range.count), GL_UNSIGNED_INT, reinterpret_cast<const void *>(offset));
        } else {
            glDrawArrays(primitives, GLint(range.first), GLsizei(range.count));
        }
        if (query)
            glEndConditionalRender();
    }
}

GPUModel::GPUModel()
    : d(std::make_unique<Private>())
{ }

GPUModel::~GPUModel() = default;

void GPUModel::draw(ShaderProgram *program, const quint64 &drawFlagsValue, const quint64 &drawFlagsMask,
    const WindingType &winding, bool ignoreCulling)
{
    d->draw(program, TextureManager::Instance(), drawFlagsValue, drawFlagsMask, winding, ignoreCulling);
}

void GPUModel::draw(
    ShaderProgram *program, TextureManager *manager, const quint64 &drawFlagsValue, const quint64 &drawFlagsMask)
{
    d->draw(program, manager, drawFlagsValue, drawFlagsMask, WindingCounterClockwise, false);
}

bool GPUModel::isDrawEmpty(quint64 drawFlagsValue, quint64 drawFlagsMask) const
{
    return std::none_of(d->distinctFlags.begin(), d->distinctFlags.end(),
        [&](quint64 flags) { return (flags & drawFlagsMask) == drawFlagsValue; });
}

bool GPUModel::hasFeatureFlags(quint64 flags) const
{
    const quint64 own = itemCount() > 0 ? quint64(HasSceneBounds) : 0;
    return (own & flags) == flags;
}

QPair<QVector3D, QVector3D> GPUModel::sceneBounds() const
{
    if (itemCount() == 0)
        return {};
    if (d->areSceneBoundsStale) {
        d->sceneBounds = Bounds();
        for (const Bounds &bounds : d->bounds)
            d->sceneBounds.include(bounds);
        d->areSceneBoundsStale = false;
    }
    return d->sceneBounds.toPair();
}

int GPUModel::itemCount() const
{
    return d->itemCount();
}

bool GPUModel::hasItem(int item) const
{
    return item >= 0 && item < itemCount();
}

quint64 GPUModel::itemFeatureFlags(int item) const
{
    return hasItem(item) ? d->featureFlags[size_t(item)] : 0;
}

QMatrix4x4 GPUModel::modelMatrix(int item) const
{
    return hasItem(item) ? d->objectRows.model(item) : QMatrix4x4();
}

QMatrix4x4 GPUModel::previousModelMatrix(int item) const
{
    return hasItem(item) ? d->objectRows.previous(item) : QMatrix4x4();
}

QPair<QVector3D, QVector3D> GPUModel::itemBounds(int item) const
{
    return hasItem(item) ? d->bounds[size_t(item)].toPair() : QPair<QVector3D, QVector3D>();
}

void GPUModel::setModelMatrix(int item, const QMatrix4x4 &matrix)
{
    if (!hasItem(item)) {
        KVZ_WARNING(QStringLiteral("Item %1 cannot be moved: the model has %2 items").arg(item).arg(itemCount()));
        return;
    }
    if (!allFinite(matrix)) {
        KVZ_WARNING(QStringLiteral("Item %1 cannot be moved: its matrix is not finite").arg(item));
        return;
    }
    d->setMatrix(item, matrix);
}

bool GPUModel::hasMovedItems() const
{
    return !d->objectRows.moved().isEmpty();
}

QVector<int> GPUModel::movedItems() const
{
    return d->objectRows.moved();
}

void GPUModel::advanceFrame()
{
    d->objectRows.advance();
}

DrawBuffers *GPUModel::drawBuffers(int index) const
{
    return index == 0 ? d->geometry.data() : nullptr;
}

Bindable *GPUModel::objectData(int index) const
{
    return index == 0 ? &d->objectRows : nullptr;
}

Bindable *GPUModel::materialData(int index) const
{
    return index == 0 ? &d->materialRows : nullptr;
}

const QVector<float> &GPUModel::materialRows() const
{
    return d->materialValues;
}

Bindable *GPUModel::surfaceData() const
{
    return &d->surfaceRows;
}

int GPUModel::surfaceFeatures() const
{
    return InstanceDataCollection::isBound(surfacePlan) ? int(AllSurfaceFeatures) : d->surfaceFeatures;
}

Bindable *GPUModel::materialImages() const
{
    return &d->images;
}

int GPUModel::addImage(const QImage &image)
{
    ManagedImage added;
    added.image = image;
    return OpenGLDeviceContext::currentHandle() ? d->images.add(added) : 0;
}

const VertexExtras &GPUModel::vertexExtras() const
{
    return d->extras;
}

void GPUModel::frustumCull(const QMatrix4x4 &viewProjection)
{
    if (!allFinite(viewProjection))
        return;
    const Frustum frustum(viewProjection);
    for (size_t item = 0; item < d->bounds.size(); ++item) {
        if (frustum.isOutside(d->bounds[item]))
            d->marks[item] = Private::Mark::Culled;
    }
}

void GPUModel::visibilityCull()
{
    d->queries->collect([this](int item, OcclusionQueries::Verdict verdict) {
        Private::Mark &mark = d->marks[size_t(item)];
        if (verdict == OcclusionQueries::Verdict::Hidden)
            mark = Private::Mark::Culled;
        else if (verdict == OcclusionQueries::Verdict::Undecided && mark == Private::Mark::Drawn)
            mark = Private::Mark::Undecided;
    });
}

void GPUModel::resetCulling()
{
    std::fill(d->marks.begin(), d->marks.end(), Private::Mark::Drawn);
    d->queries->stop();
}

bool GPUModel::isCulled(int item) const
{
    return hasItem(item) && d->marks[size_t(item)] == Private::Mark::Culled;
}

int GPUModel::culledCount() const
{
    return int(std::count(d->marks.begin(), d->marks.end(), Private::Mark::Culled));
}

} // namespace Velmora::Kvz
