// SPDX-License-Identifier: MIT
#include <Chain/ScenePicker.h>

#include <Chain/ChainDescription.h>
#include <Chain/RenderChain.h>
#include <GL/OpenGLDeviceContext.h>
#include <Host/ItemRegionReader.h>
#include <Scene/GPUModel.h>

#include <algorithm>
#include <deque>
#include <utility>

namespace Velmora::Kvz {

namespace {

constexpr int largestRadius = 64;

ChainDescription idsChain()
{
    ChainPass pass;
    pass.name = QStringLiteral("ids");
    pass.className = QStringLiteral("ItemIdRenderPass");
    ChainDescription chain;
    chain.name = QStringLiteral("ids");
    chain.passes.append(pass);
    chain.exports.insert(QStringLiteral("ids"), {QStringLiteral("ids"), QStringLiteral("Kvz_KvzTexture*_ItemId")});
    chain.exports.insert(QStringLiteral("depth"), {QStringLiteral("ids"), QStringLiteral("Kvz_KvzTexture*_Depth")});
    return chain;
}

/// Makes a projection show an area of its picture alone.
QMatrix4x4 cropped(const QMatrix4x4 &projection, const QRect &area, const QSize &size)
{
    const float scaleX = float(size.width()) / float(area.width());
    const float scaleY = float(size.height()) / float(area.height());
    const float x = float(2 * area.left() + area.width()) / float(size.width()) - 1;
    const float y = 1 - float(2 * area.top() + area.height()) / float(size.height());
    QMatrix4x4 crop;
    crop.scale(scaleX, scaleY, 1);
    crop.translate(-x, -y, 0);
    return crop * projection;
}

/// The point of a plane through three corners on the line from `a` to `b`; false where it does not meet it.
bool meet(const QVector<QVector3D> &corners, const QVector3D &a, const QVector3D &b, QVector3D *point)
{
    const QVector3D normal = QVector3D::crossProduct(corners[1] - corners[0], corners[2] - corners[0]);
    const float along = QVector3D::dotProduct(normal, b - a);
    if (along == 0)
        return false;
    const QVector3D found = a + (b - a) * (QVector3D::dotProduct(normal, corners[0] - a) / along);
    if (!qIsFinite(found.x()) || !qIsFinite(found.y()) || !qIsFinite(found.z()))
        return false;
    *point = found;
    return true;
}

} // namespace

struct ScenePicker::Private
{
    struct Question
    {
        ItemRegionReader reader;
        QMatrix4x4 toDevice; ///< World to the clip space of the area.
        QPoint pixel; ///< Of the area.
        int radius = 0;
        quint64 model = 0; ///< Its serial number.
        Answer answer; ///< Either this or the next.
        AreaAnswer areaAnswer;
    };

    bool fail(const QString &text)
    {
        error = text;
        return false;
    }
    bool ask(const QRect &area, std::unique_ptr<Question> question);
    ScenePick pickIn(const Question &question, const ItemRegion &region) const;
    void answer(const Question &question, const std::optional<ItemRegion> &region) const;
    int answerAll(bool waits);

    RenderChain chain;
    GPUModel *model = nullptr;
    QMatrix4x4 camera;
    QMatrix4x4 projection;
    QSize size;
    std::deque<std::unique_ptr<Question>> questions;
    QString error;
};

/// Draws the ids of an area, and has them copied.
bool ScenePicker::Private::ask(const QRect &area, std::unique_ptr<Question> question)
{
    if (!OpenGLDeviceContext::currentHandle())
        return fail(QStringLiteral("no current OpenGL context"));
    if (!model)
        return fail(QStringLiteral("no model to pick from"));
    const QMatrix4x4 seen = cropped(projection, area, size);
    question->toDevice = seen * camera;
    question->model = model->serialNumber();
    chain.setViewport(QRect(QPoint(), area.size()));
    chain.setCamera(camera, seen);
    chain.setModel(model);
    if (!chain.renderFrame())
        return fail(chain.errorString());
    Texture *const ids = chain.exportedTexture(QStringLiteral("ids"));
    Texture *const depth = chain.exportedTexture(QStringLiteral("depth"));
    if (!question->reader.request(ids, depth, QRect(QPoint(), area.size())))
        return fail(QStringLiteral("the ids of items could not be copied"));
    questions.push_back(std::move(question));
    return true;
}

ScenePick ScenePicker::Private::pickIn(const Question &question, const ItemRegion &region) const
{
    ScenePick pick;
    int nearest = question.radius * question.radius + 1;
    float depth = 2;
    QPoint place;
    for (int y = 0; y < region.area.height(); ++y) {
        for (int x = 0; x < region.area.width(); ++x) {
            const size_t index = region.indexOf(QPoint(x, y));
            const QPoint away = QPoint(x, y) - question.pixel;
            const int distance = QPoint::dotProduct(away, away);
            if (region.ids[index].item == 0 || distance > nearest
                || (distance == nearest && region.depths[index] >= depth))
                continue;
            nearest = distance;
            depth = region.depths[index];
            place = QPoint(x, y);
            pick.item = int(region.ids[index].item) - 1;
            pick.triangle = int(region.ids[index].triangle);
        }
    }
    if (!pick.isHit())
        return pick;
    pick.mesh = model->itemMesh(pick.item);
    pick.material = model->itemMaterial(pick.item);
    pick.pixel = place;

    const QMatrix4x4 toWorld = question.toDevice.inverted();
    const float x = (2 * float(place.x()) + 1) / float(region.area.width()) - 1;
    const float y = 1 - (2 * float(place.y()) + 1) / float(region.area.height());
    const QVector3D front = toWorld.map(QVector3D(x, y, -1));
    const QVector3D back = toWorld.map(QVector3D(x, y, 1));
    pick.position = toWorld.map(QVector3D(x, y, 2 * depth - 1));
    // The triangle says it more exactly than its depth.
    const QVector<QVector3D> corners = model->triangleCorners(pick.item, pick.triangle);
    if (corners.isEmpty())
        return pick;
    meet(corners, front, back, &pick.position);
    pick.normal = QVector3D::crossProduct(corners[1] - corners[0], corners[2] - corners[0]).normalized();
    if (QVector3D::dotProduct(pick.normal, back - front) > 0)
        pick.normal = -pick.normal;
    return pick;
}

void ScenePicker::Private::answer(const Question &question, const std::optional<ItemRegion> &region) const
{
    const bool isAsked = region && model && model->serialNumber() == question.model;
    if (question.answer) {
        question.answer(isAsked ? pickIn(question, *region) : ScenePick());
        return;
    }
    QVector<int> items;
    if (isAsked) {
        for (const ItemRegion::Ids &ids : region->ids) {
            if (ids.item != 0)
                items.append(int(ids.item) - 1);
        }
        std::sort(items.begin(), items.end());
        items.erase(std::unique(items.begin(), items.end()), items.end());
    }
    question.areaAnswer(items);
}

/// Answers in order; one that has not arrived holds the later ones back.
int ScenePicker::Private::answerAll(bool waits)
{
    while (!questions.empty()) {
        Question &first = *questions.front();
        const std::optional<ItemRegion> region = waits ? first.reader.wait() : first.reader.take();
        if (!region && first.reader.isPending())
            break;
        const std::unique_ptr<Question> done = std::move(questions.front());
        questions.pop_front(); // An answer may ask the next question.
        answer(*done, region);
    }
    return int(questions.size());
}

ScenePicker::ScenePicker()
    : d(std::make_unique<Private>())
{
    d->chain.setDescription(idsChain());
    d->chain.setRestoresState(true);
    d->chain.setAdvancesModels(false);
}

ScenePicker::~ScenePicker() = default;

void ScenePicker::setModel(GPUModel *model)
{
    d->model = model;
    if (!model)
        d->chain.setModel(nullptr);
}

void ScenePicker::setView(const QMatrix4x4 &camera, const QMatrix4x4 &projection, const QSize &size)
{
    d->camera = camera;
    d->projection = projection;
    d->size = size;
}

void ScenePicker::setOpaqueOnly(bool isOpaqueOnly)
{
    d->chain.setOption(QStringLiteral("ids"), QStringLiteral("opaqueOnly"), isOpaqueOnly);
}

bool ScenePicker::pick(const QPoint &pixel, int radius, const Answer &answer)
{
    const QRect picture(QPoint(), d->size);
    if (!picture.contains(pixel)) {
        return d->fail(QStringLiteral("pixel (%1, %2) is outside of the picture of %3 by %4")
                           .arg(pixel.x())
                           .arg(pixel.y())
                           .arg(d->size.width())
                           .arg(d->size.height()));
    }
    auto question = std::make_unique<Private::Question>();
    question->radius = qBound(0, radius, largestRadius);
    const QPoint reach(question->radius, question->radius);
    const QRect area = QRect(pixel - reach, pixel + reach) & picture;
    question->pixel = pixel - area.topLeft();
    question->answer = [answer, corner = area.topLeft()](ScenePick pick) {
        if (pick.isHit())
            pick.pixel += corner;
        answer(pick);
    };
    return d->ask(area, std::move(question));
}

bool ScenePicker::pickArea(const QRect &area, const AreaAnswer &answer)
{
    const QRect seen = area.normalized() & QRect(QPoint(), d->size);
    if (seen.isEmpty())
        return d->fail(QStringLiteral("the area does not touch the picture"));
    auto question = std::make_unique<Private::Question>();
    question->areaAnswer = answer;
    return d->ask(seen, std::move(question));
}

QString ScenePicker::errorString() const
{
    return d->error;
}

int ScenePicker::pendingCount() const
{
    return int(d->questions.size());
}

int ScenePicker::poll()
{
    return d->answerAll(false);
}

void ScenePicker::wait()
{
    d->answerAll(true);
}

void ScenePicker::releaseContext()
{
    std::deque<std::unique_ptr<Private::Question>> open;
    open.swap(d->questions);
    d->chain.releaseContext();
    for (const std::unique_ptr<Private::Question> &question : open)
        d->answer(*question, std::nullopt);
}

} // namespace Velmora::Kvz
