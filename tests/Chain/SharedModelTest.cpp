// SPDX-License-Identifier: MIT
// Viewports with contexts of their own that draw one model.
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"

#include <Chain/ChainLibrary.h>
#include <Scene/GPUModelBuilder.h>

#include <array>

namespace Velmora::Kvz {

namespace {

const QSize size(48, 36);

std::unique_ptr<HeadlessContext> makeSharing(HeadlessContext &with)
{
    HeadlessContext::Options options;
    options.shareWith = &with;
    return HeadlessContext::create(options);
}

QSharedPointer<GPUModel> makeScene()
{
    GPUModelBuilder builder;
    const int ball = builder.addMesh(sphereMesh(3));
    const int box = builder.addMesh(boxMesh());
    for (int i = 0; i < 6; ++i) { // Enough for draws of several items at once.
        MaterialData material;
        material.kd = {0.2f + 0.15f * float(i), 0.9f - 0.15f * float(i), 0.3f};
        material.d = i == 5 ? 0.5f : 1;
        if (i == 5)
            material.alphaMode = MaterialData::Blend;
        QMatrix4x4 matrix;
        matrix.translate(float(i % 3) - 1, float(i / 3) - 0.5f, 0.4f * float(i % 2));
        matrix.scale(0.5f);
        builder.addItem(i % 2 == 0 ? ball : box, builder.addMaterial(material), matrix,
            i == 5 ? quint64(GPUModel::Transparent) : 0);
    }
    return builder.build();
}

/// A ready chain with small shadow maps.
ChainDescription ready(const QString &name)
{
    ChainDescription description;
    QString error;
    EXPECT_TRUE(loadChain(name, &description, &error)) << qPrintable(error);
    for (ChainPass &pass : description.passes) {
        if (pass.values.contains(QStringLiteral("Kvz_QSize_MapSize")))
            pass.values[QStringLiteral("Kvz_QSize_MapSize")] = QSize(64, 64);
    }
    return description;
}

CameraView viewOf(int viewport, int frame)
{
    CameraView view;
    view.azimuth = viewport == 0 ? 30 : float(-40 + (frame > 2 ? 15 : 0));
    view.elevation = viewport == 0 ? 20 : 5;
    return view;
}

void moveItems(GPUModel *model, int frame)
{
    QMatrix4x4 matrix;
    matrix.translate(-1 + 0.1f * float(frame / 2), -0.5f, 0);
    matrix.scale(0.5f);
    model->setModelMatrix(0, matrix);
}

constexpr int frameCount = 6;

} // namespace

class SharedModelTest : public GLTest, public ::testing::WithParamInterface<const char *>
{
protected:
    using Pictures = std::array<std::array<Image, frameCount>, 2>;

    /// The pictures of a viewport that has its model for itself.
    static std::array<Image, frameCount> picturesAlone(const QString &name, int viewport)
    {
        std::array<Image, frameCount> pictures;
        const std::unique_ptr<HeadlessContext> own = HeadlessContext::create();
        const QSharedPointer<GPUModel> model = makeScene();
        ModelChain chain(ready(name), model, size);
        for (int frame = 0; frame < frameCount; ++frame) {
            moveItems(model.data(), frame);
            chain.look(viewOf(viewport, frame));
            chain.render();
            pictures[size_t(frame)] = chain.picture();
        }
        return pictures;
    }

    void TearDown() override
    {
        context().makeCurrent();
        GLTest::TearDown();
    }
};

TEST_P(SharedModelTest, eachViewportShowsWhatItWouldShowAlone)
{
    const QString name = QString::fromUtf8(GetParam());
    // The model lives in a context of its own, as in a program whose viewports come and go.
    HeadlessContext &owner = context();
    ASSERT_TRUE(owner.makeCurrent());
    const QSharedPointer<GPUModel> model = makeScene();
    ASSERT_TRUE(model);
    std::array<std::unique_ptr<HeadlessContext>, 2> contexts;
    std::array<std::unique_ptr<ModelChain>, 2> chains;
    for (size_t i = 0; i < 2; ++i) {
        contexts[i] = makeSharing(owner);
        ASSERT_TRUE(contexts[i]);
        chains[i] = std::make_unique<ModelChain>(ready(name), model, size);
    }
    Pictures together;
    for (int frame = 0; frame < frameCount; ++frame) {
        moveItems(model.data(), frame);
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(contexts[size_t(i)]->makeCurrent());
            chains[size_t(i)]->look(viewOf(i, frame));
            chains[size_t(i)]->render();
            together[size_t(i)][size_t(frame)] = chains[size_t(i)]->picture();
        }
    }
    for (size_t i = 0; i < 2; ++i) {
        contexts[i]->makeCurrent();
        chains[i].reset();
        contexts[i].reset();
    }
    for (int i = 0; i < 2; ++i) {
        const std::array<Image, frameCount> alone = picturesAlone(name, i);
        saveForViewing(together[size_t(i)][frameCount - 1], QStringLiteral("shared-%1-%2").arg(name).arg(i));
        for (int frame = 0; frame < frameCount; ++frame) {
            EXPECT_EQ(together[size_t(i)][size_t(frame)].data, alone[size_t(frame)].data)
                << "viewport " << i << ", frame " << frame;
        }
        EXPECT_GT(maximumDifference(alone[0], alone[frameCount - 1]), 0.1) << "something moves";
    }
    EXPECT_GT(maximumDifference(together[0][0], together[1][0]), 0.1) << "the views differ";
    ASSERT_TRUE(owner.makeCurrent());
}

INSTANTIATE_TEST_SUITE_P(ReadyChains, SharedModelTest,
    ::testing::Values("forward", "shadows", "temporal", "smaa-t2x", "full"),
    [](const ::testing::TestParamInfo<const char *> &chain) {
        return QString::fromUtf8(chain.param).remove('-').toStdString();
    });

} // namespace Velmora::Kvz
