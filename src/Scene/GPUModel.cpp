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
#include <Scene/ModelPast.h>
#include <Scene/SurfaceFeature.h>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <array>
#include <atomic>

namespace Velmora::Kvz {

namespace {

const QString instanceInfoPlan = QStringLiteral("InstanceInfo");
const QString tavoInstancePlan = QStringLiteral("TavoInstance");
const QString materialPlan = QStringLiteral("OBJMaterial");
const QString surfacePlan = QStringLiteral("SurfaceMaterial");
const QString physicalPlan = QStringLiteral("PhysicalMaterial");

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

/// The uniform of a program that takes the row of each item, if it has one.
class RowUniform
{
public:
    RowUniform(const ShaderProgram &program, const QString &plan)
    {
        const InstanceDataPlan &description = InstanceDataRegistry::Instance().getPlan(plan);
        m_location = program.getUniformLocation(description.rowUniformName());
        m_count = description.stride();
    }

    void set(const float *row) const
    {
        if (m_location >= 0)
            glUniform4fv(m_location, m_count, row);
    }

private:
    GLint m_location;
    GLsizei m_count;
};

GLenum primitivesFor(const ShaderProgram *program)
{
    if (!program->hasTessellation())
        return GL_TRIANGLES;
    glPatchParameteri(GL_PATCH_VERTICES, 3);
    return GL_PATCHES;
}

quint64 nextSerialNumber()
{
    static std::atomic<quint64> last{0};
    return ++last;
}

/// Reads bytes of a buffer.
void readBuffer(const BufferObject &buffer, size_t offset, void *data, size_t size)
{
    GLint before = 0;
    glGetIntegerv(GL_COPY_READ_BUFFER_BINDING, &before);
    glBindBuffer(GL_COPY_READ_BUFFER, buffer.getBO());
    glGetBufferSubData(GL_COPY_READ_BUFFER, GLintptr(offset), GLsizeiptr(size), data);
    glBindBuffer(GL_COPY_READ_BUFFER, GLuint(before));
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

PhysicalRows::PhysicalRows(const QString &sampler, ManagedTextures *images)
    : MaterialRows(sampler, images)
{ }

void PhysicalRows::set(std::vector<PhysicalRow> materials, QVector<int> items)
{
    m_materials = std::move(materials);
    m_items = std::move(items);
}

void PhysicalRows::bind()
{
    if (!m_items.isEmpty()) {
        std::vector<PhysicalRow> rows;
        rows.reserve(size_t(m_items.size()));
        for (const int material : qAsConst(m_items))
            rows.push_back(m_materials[size_t(material)]);
        upload(rows.data(), long(rows.size() * sizeof(PhysicalRow)));
        m_items.clear();
        m_materials.clear();
    }
    MaterialRows::bind();
}

GPUModel::Private::Private()
    : materialRows(InstanceDataRegistry::Instance().getPlan(materialPlan).samplerName(), &images),
      surfaceRows(InstanceDataRegistry::Instance().getPlan(surfacePlan).samplerName(), &images),
      physicalRows(InstanceDataRegistry::Instance().getPlan(physicalPlan).samplerName(), &images),
      serialNumber(nextSerialNumber())
{ }

GPUModel::Private::~Private() = default;

void GPUModel::Private::addItem(
    const Range &range, const Bounds &itemMeshBounds, const QMatrix4x4 &matrix, quint64 itemFeatureFlags)
{
    ranges.push_back(range);
    featureFlags.push_back(itemFeatureFlags);
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
    ownPast.reset(new ModelPast(itemCount()));
    present = ownPast;
}

void GPUModel::Private::setMatrix(int item, const QMatrix4x4 &matrix)
{
    const size_t i = size_t(item);
    const QMatrix4x4 before = objectRows.model(item);
    if (before != matrix)
        ++matrixRevision;
    ownPast->d->noteMove(item, before);
    for (const std::weak_ptr<ModelPast> &other : otherPasts) {
        if (const std::shared_ptr<ModelPast> past = other.lock())
            past->d->noteMove(item, before);
    }
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
    const bool isPhysical = program->hasUniform(InstanceDataRegistry::Instance().getPlan(physicalPlan).samplerName());
    AutoBinder physicalBinder(isPhysical ? unlessReplaced(physicalPlan, &physicalRows) : nullptr);
    AutoBinder imageBinder(&images); // also where rows of a host refer to them
    // The boxes have the model's own matrices only.
    const bool areMatricesOwn =
        !InstanceDataCollection::isBound(instanceInfoPlan) && !InstanceDataCollection::isBound(tavoInstancePlan);
    OcclusionQueries &queries = past().queries();
    const int view = manager && areMatricesOwn ? queries.view(program) : -1;
    const bool queriesTell = view >= 0 && queries.tellHere();
    if (manager)
        manager->bindTextures(program);
    drawItems(program, value, mask, winding, ignoreCulling, queriesTell ? view : -1);
    if (manager)
        manager->unbindTextures(program);
    if (view >= 0)
        queries.testBoxes(
            view, bounds, [&](int item) { return isSelected(size_t(item), value, mask); }, queriesTell);
}

template <typename Draw>
void GPUModel::Private::forEachDraw(
    quint64 value, quint64 mask, WindingType winding, bool ignoreCulling, int view, const Draw &draw) const
{
    const GLenum front = winding == WindingClockwise ? GL_CW : GL_CCW;
    const GLenum mirroredFront = winding == WindingClockwise ? GL_CCW : GL_CW;
    const ModelPast::Private &culling = past();
    const size_t count = ranges.size();
    for (size_t item = 0; item < count; ++item) {
        if (!isSelected(item, value, mask))
            continue;
        const CullingMark mark = ignoreCulling ? CullingMark::Drawn : culling.marks[item];
        if (mark == CullingMark::Culled)
            continue;
        const GLuint query = mark == CullingMark::Undecided ? culling.queries().query(view, int(item)) : 0;
        draw(item, isMirrored[item] ? mirroredFront : front, query);
    }
}

void GPUModel::Private::drawItems(
    const ShaderProgram *program, quint64 value, quint64 mask, WindingType winding, bool ignoreCulling, int view)
{
    FrontFace frontFace;
    if (program->attributeLocation(QStringLiteral("va_DrawNumber")) >= 0) {
        drawNumberedItems(value, mask, winding, ignoreCulling, view);
        return;
    }
    const bool isIndexed = !geometry->indexBO().isNull();
    const GLenum primitives = primitivesFor(program);
    const GLint drawIdLocation = program->getUniformLocation(QStringLiteral("u_DrawID"));
    const RowUniform objectRow(*program, instanceInfoPlan);
    const RowUniform surfaceRow(*program, surfacePlan);
    forEachDraw(value, mask, winding, ignoreCulling, view, [&](size_t item, GLenum front, GLuint query) {
        if (query)
            glBeginConditionalRender(query, GL_QUERY_NO_WAIT);
        frontFace.set(front);
        if (drawIdLocation >= 0)
            glUniform1ui(drawIdLocation, GLuint(item));
        objectRow.set(objectRows.values(int(item)));
        surfaceRow.set(surfaceValues[size_t(itemMaterials[int(item)])].baseColour);
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
    });
}

void GPUModel::Private::drawNumberedItems(
    quint64 value, quint64 mask, WindingType winding, bool ignoreCulling, int view)
{
    const bool isIndexed = !geometry->indexBO().isNull();
    itemDraws.begin();
    forEachDraw(value, mask, winding, ignoreCulling, view, [&](size_t item, GLenum front, GLuint query) {
        itemDraws.add(isIndexed, ranges[item].first, ranges[item].count, quint32(item), front, query);
    });
    constexpr quint64 spread = 0x9e3779b97f4a7c15; // So that value and mask make one number that no others make.
    itemDraws.draw(value * spread ^ mask, *geometry->VAO(), itemCount(), isIndexed, GL_TRIANGLES);
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

int GPUModel::itemMesh(int item) const
{
    return d->meshNumbers.value(item, -1);
}

int GPUModel::itemMaterial(int item) const
{
    return d->itemMaterials.value(item, -1);
}

QVector<QVector3D> GPUModel::triangleCorners(int item, int triangle) const
{
    if (!hasItem(item) || triangle < 0 || !OpenGLDeviceContext::currentHandle())
        return {};
    const Private::Range &range = d->ranges[size_t(item)];
    if (quint32(triangle) >= range.count / 3)
        return {};
    const quint32 first = range.first + quint32(triangle) * 3;
    std::array<quint32, 3> vertices{first, first + 1, first + 2};
    if (const QSharedPointer<BufferObject> indices = d->geometry->indexBO())
        readBuffer(*indices, first * sizeof(quint32), vertices.data(), sizeof vertices);
    const QSharedPointer<BufferObject> positions = d->geometry->VAO()->bo(QStringLiteral("va_Vertex"));
    const QMatrix4x4 matrix = modelMatrix(item);
    QVector<QVector3D> corners;
    for (const quint32 vertex : vertices) {
        std::array<float, 3> position{};
        readBuffer(*positions, vertex * sizeof position, position.data(), sizeof position);
        corners.append(matrix.map(QVector3D(position[0], position[1], position[2])));
    }
    return corners;
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
    return !d->past().moved().isEmpty();
}

QVector<int> GPUModel::movedItems() const
{
    return d->past().moved();
}

void GPUModel::advanceFrame()
{
    for (const int item : d->past().moved())
        d->objectRows.setPrevious(item, d->objectRows.model(item));
    d->past().forgetMoves();
}

quint64 GPUModel::serialNumber() const
{
    return d->serialNumber;
}

quint64 GPUModel::matrixRevision() const
{
    return d->matrixRevision;
}

std::shared_ptr<ModelPast> GPUModel::makePast()
{
    std::shared_ptr<ModelPast> past(new ModelPast(itemCount()));
    std::vector<std::weak_ptr<ModelPast>> &others = d->otherPasts;
    others.erase(std::remove_if(others.begin(), others.end(),
                     [](const std::weak_ptr<ModelPast> &other) { return other.expired(); }),
        others.end());
    others.push_back(past);
    return past;
}

void GPUModel::usePast(const std::shared_ptr<ModelPast> &past)
{
    const std::shared_ptr<ModelPast> next = past ? past : d->ownPast;
    if (next == d->present)
        return;
    const bool isOurs = next == d->ownPast
        || std::any_of(d->otherPasts.begin(), d->otherPasts.end(),
            [&](const std::weak_ptr<ModelPast> &other) { return other.lock() == next; });
    if (!isOurs) {
        KVZ_WARNING(QStringLiteral("A past that another model has made cannot be used with this one"));
        return;
    }
    for (const int item : d->past().moved()) {
        if (!next->d->hasMoved(item))
            d->objectRows.setPrevious(item, d->objectRows.model(item));
    }
    d->present = next;
    for (const int item : next->d->moved())
        d->objectRows.setPrevious(item, next->d->before(item));
}

void GPUModel::advancePast(const std::shared_ptr<ModelPast> &past)
{
    if (!past || past == d->present)
        advanceFrame();
    else
        past->d->forgetMoves();
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

Bindable *GPUModel::physicalData() const
{
    return &d->physicalRows;
}

int GPUModel::physicalFeatures() const
{
    const int tangents = d->extras.tangent >= 0 ? PhysicalTangents : 0;
    return InstanceDataCollection::isBound(physicalPlan) ? AllPhysicalFeatures & ~(PhysicalTangents & ~tangents)
                                                         : d->physicalFeatures | tangents;
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
            d->past().marks[item] = CullingMark::Culled;
    }
}

void GPUModel::visibilityCull()
{
    ModelPast::Private &past = d->past();
    past.queries().collect([&past](int item, OcclusionQueries::Verdict verdict) {
        CullingMark &mark = past.marks[size_t(item)];
        if (verdict == OcclusionQueries::Verdict::Hidden)
            mark = CullingMark::Culled;
        else if (verdict == OcclusionQueries::Verdict::Undecided && mark == CullingMark::Drawn)
            mark = CullingMark::Undecided;
    });
}

void GPUModel::resetCulling()
{
    ModelPast::Private &past = d->past();
    std::fill(past.marks.begin(), past.marks.end(), CullingMark::Drawn);
    past.stopQueries();
}

bool GPUModel::isCulled(int item) const
{
    return hasItem(item) && d->past().marks[size_t(item)] == CullingMark::Culled;
}

int GPUModel::culledCount() const
{
    const std::vector<CullingMark> &marks = d->past().marks;
    return int(std::count(marks.begin(), marks.end(), CullingMark::Culled));
}

} // namespace Velmora::Kvz
