// SPDX-License-Identifier: MIT
#include "SceneFixtures.h"

#include <GL/AutoBinder.h>
#include <GL/AutoEnabler.h>
#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>
#include <Scene/InstanceDataCollection.h>

#include <epoxy/gl.h>

#include <cmath>
#include <limits>

namespace Velmora::Kvz {

namespace {

/// Counts the calls that create, read and render by queries, and can delay results.
class QuerySpy
{
public:
    QuerySpy()
    {
        resolveEntryPoints();
        instance = this;
        m_begin = epoxy_glBeginQuery;
        m_read = epoxy_glGetQueryObjectuiv;
        m_condition = epoxy_glBeginConditionalRender;
        epoxy_glBeginQuery = [](GLenum target, GLuint query) {
            ++instance->made;
            instance->lastQuery = query;
            instance->lastTarget = target;
            instance->m_begin(target, query);
        };
        epoxy_glGetQueryObjectuiv = [](GLuint query, GLenum name, GLuint *value) {
            ++instance->reads;
            instance->m_read(query, name, value);
            if (name == GL_QUERY_RESULT_AVAILABLE && instance->areResultsLate)
                *value = GL_FALSE;
        };
        epoxy_glBeginConditionalRender = [](GLuint query, GLenum mode) {
            ++instance->conditions;
            instance->m_condition(query, mode);
        };
    }
    ~QuerySpy()
    {
        epoxy_glBeginQuery = m_begin;
        epoxy_glGetQueryObjectuiv = m_read;
        epoxy_glBeginConditionalRender = m_condition;
    }

    int made = 0;
    GLuint lastQuery = 0;
    GLenum lastTarget = 0;
    int reads = 0;
    int conditions = 0;
    bool areResultsLate = false;

private:
    /// The first call of each function resolves its pointer, which can then be replaced.
    static void resolveEntryPoints()
    {
        GLuint query = 0;
        GLuint value = 0;
        glGenQueries(1, &query);
        glBeginQuery(GL_SAMPLES_PASSED, query);
        glEndQuery(GL_SAMPLES_PASSED);
        glGetQueryObjectuiv(query, GL_QUERY_RESULT, &value);
        glBeginConditionalRender(query, GL_QUERY_WAIT);
        glEndConditionalRender();
        glDeleteQueries(1, &query);
    }

    static QuerySpy *instance;
    PFNGLBEGINQUERYPROC m_begin;
    PFNGLGETQUERYOBJECTUIVPROC m_read;
    PFNGLBEGINCONDITIONALRENDERPROC m_condition;
};

QuerySpy *QuerySpy::instance = nullptr;

class CullingTest : public GLTest
{
protected:
    static constexpr int side = 64;

    void SetUp() override
    {
        GLTest::SetUp();
        program = makeItemProgram(QStringLiteral("vec4(getKd(), 1.0)"));
        projection.perspective(60, 1, 0.5f, 100);
        camera.lookAt({0, 0, 10}, {0, 0, 0}, {0, 1, 0});
        glEnable(GL_DEPTH_TEST);
    }

    void TearDown() override
    {
        program.reset();
        model.clear();
        GLTest::TearDown();
    }

    /// Cubes at these places; cube i has a red of i + 1.
    void makeCubes(const QVector<QMatrix4x4> &places)
    {
        GPUModelBuilder builder;
        builder.addMesh(cube());
        for (int i = 0; i < places.size(); ++i) {
            MaterialData material;
            material.kd = {float(i + 1), 0, 0};
            builder.addItem(0, builder.addMaterial(material), places[i]);
        }
        model = builder.build();
    }

    void makeOccluderAndHidden() { makeCubes({placed(0, 0, 3, 2), placed(0, 0, -3)}); }

    void draw(TextureManager *manager)
    {
        AutoBinder binder(program.get());
        program->setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
        program->setUniform(QStringLiteral("u_CameraMatrix"), camera);
        model->draw(program.get(), manager, 0, 0);
        glFinish();
    }

    /// Draws a frame as a chain does.
    void frame(RenderTarget &target)
    {
        model->resetCulling();
        model->visibilityCull();
        target.clear();
        draw(TextureManager::Instance());
    }

    QMatrix4x4 projection;
    QMatrix4x4 camera;
    std::unique_ptr<ShaderProgram> program;
    QSharedPointer<GPUModel> model;
};

TEST_F(CullingTest, frustumMarksWhatLiesOutside)
{
    makeCubes({placed(0, 0), placed(100, 0), placed(-100, 0), placed(0, 100), placed(0, -100), placed(0, 0, 20),
        placed(0, 0, -200), placed(5.5f, 0), placed(0, 0, 10), placed(0, 0, -90)});
    model->frustumCull(projection * camera);
    const bool expected[] = {false, true, true, true, true, true, true, false, false, false};
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(model->isCulled(i), expected[i]) << i;
    EXPECT_EQ(model->culledCount(), 6);
    EXPECT_FALSE(model->isCulled(-1));
    EXPECT_FALSE(model->isCulled(10));

    // Marks accumulate until they are reset.
    model->frustumCull(QMatrix4x4());
    EXPECT_EQ(model->culledCount(), 9);
    EXPECT_FALSE(model->isCulled(0));
    model->resetCulling();
    EXPECT_EQ(model->culledCount(), 0);
}

TEST_F(CullingTest, frustumFollowsMovedItems)
{
    makeCubes({placed(0, 0)});
    model->setModelMatrix(0, placed(100, 0));
    model->frustumCull(projection * camera);
    EXPECT_TRUE(model->isCulled(0));
}

TEST_F(CullingTest, degenerateMatricesMarkNothing)
{
    makeCubes({placed(0, 0), placed(100, 0)});
    for (const float value : {std::nanf(""), std::numeric_limits<float>::infinity()}) {
        QMatrix4x4 matrix = projection * camera;
        matrix(2, 1) = value;
        model->frustumCull(matrix);
        EXPECT_EQ(model->culledCount(), 0);
    }
    QMatrix4x4 zero;
    zero.fill(0);
    model->frustumCull(zero);
    EXPECT_EQ(model->culledCount(), 0);
    // Rows without a plane hide nothing; the other rows count.
    QMatrix4x4 onlyX;
    onlyX.fill(0);
    onlyX(0, 0) = 1.0f / 50;
    onlyX(3, 3) = 1;
    model->frustumCull(onlyX);
    EXPECT_FALSE(model->isCulled(0));
    EXPECT_TRUE(model->isCulled(1));
}

TEST_F(CullingTest, infiniteFarPlaneKeepsWhatIsAhead)
{
    makeCubes({placed(0, 0), placed(0, 0, -1e6f), placed(0, 0, 20)});
    QMatrix4x4 infinite = projection;
    infinite(2, 2) = -1;
    infinite(2, 3) = -1;
    model->frustumCull(infinite * camera);
    EXPECT_FALSE(model->isCulled(0));
    EXPECT_FALSE(model->isCulled(1));
    EXPECT_TRUE(model->isCulled(2));
}

TEST_F(CullingTest, hiddenItemIsMarkedAndComesBack)
{
    makeOccluderAndHidden();
    RenderTarget target(side, side, GL_RGBA32F);
    frame(target);
    EXPECT_EQ(model->culledCount(), 0);
    frame(target);
    EXPECT_FALSE(model->isCulled(0));
    EXPECT_TRUE(model->isCulled(1));
    for (int i = 0; i < 5; ++i) { // It stays like that.
        frame(target);
        EXPECT_TRUE(model->isCulled(1));
        EXPECT_EQ(target.read().pixel(side / 2, side / 2).x(), 1.0f);
    }

    model->setModelMatrix(0, placed(4.5f, 0, 0)); // Moved out of the way.
    frame(target);
    EXPECT_TRUE(model->isCulled(1)); // The result of the previous frame.
    EXPECT_EQ(target.read().pixel(side / 2, side / 2).x(), 0.0f);
    frame(target);
    EXPECT_FALSE(model->isCulled(1));
    EXPECT_EQ(target.read().pixel(side / 2, side / 2).x(), 2.0f);
}

TEST_F(CullingTest, visibleItemsStayWhileTheCameraTurns)
{
    makeCubes({placed(-2, 0), placed(2, 0), placed(0, 2.5f, -1), placed(0, 0, 30)});
    RenderTarget target(side, side, GL_RGBA32F);
    for (int i = 0; i < 72; ++i) {
        camera.setToIdentity();
        const float angle = float(i) * 5 * float(M_PI) / 180;
        camera.lookAt({12 * std::sin(angle), 3, 12 * std::cos(angle)}, {0, 0, 0}, {0, 1, 0});
        frame(target);
        const Image image = target.read();
        if (i == 8)
            saveForViewing(image, QStringLiteral("culling-camera-turns"));
        // Everything visible was drawn, except in the frame in which it comes out from behind something.
        const int marked = model->culledCount();
        model->resetCulling();
        target.clear();
        draw(nullptr);
        if (marked == 0) {
            EXPECT_EQ(maximumDifference(image, target.read()), 0) << i;
        }
        EXPECT_LE(marked, 1) << i;
    }
}

TEST_F(CullingTest, flatItemsDoNotHideThemselves)
{
    GPUModelBuilder builder;
    MeshData square = unitSquare();
    for (QVector3D &position : square.positions)
        position -= QVector3D(0.5f, 0.5f, 0);
    builder.addMesh(square);
    builder.addMaterial({});
    builder.addItem(0, 0);
    model = builder.build();
    RenderTarget target(side, side, GL_RGBA32F);
    for (const GLenum function : {GL_LESS, GL_LEQUAL}) {
        glDepthFunc(function);
        for (const float distance : {1.0f, 5.0f, 20.0f, 95.0f}) { // At the last one it is smaller than a pixel.
            for (const float angle : {0.0f, 30.0f, 60.0f, 85.0f}) {
                QMatrix4x4 matrix;
                matrix.translate(0, 0, 10 - distance);
                matrix.rotate(angle, 1, 0.3f, 0);
                model->setModelMatrix(0, matrix);
                for (int i = 0; i < 3; ++i) {
                    frame(target);
                    EXPECT_EQ(model->culledCount(), 0) << distance << ' ' << angle;
                }
            }
        }
    }
}

TEST_F(CullingTest, itemsAroundTheViewerAndAtTheNearPlaneAreVisible)
{
    // The room is drawn first and everything else hides behind the wall in front of the viewer.
    makeCubes({placed(0, 0, 8.5f, 0.9f), placed(0, 0, 10, 3), placed(0, 0, 9.4f, 0.2f), placed(0, 0, -5)});
    RenderTarget target(side, side, GL_RGBA32F);
    for (int i = 0; i < 3; ++i)
        frame(target);
    EXPECT_FALSE(model->isCulled(0));
    EXPECT_FALSE(model->isCulled(1)); // The camera is inside it.
    EXPECT_FALSE(model->isCulled(2)); // The near plane cuts it.
    EXPECT_TRUE(model->isCulled(3));
}

TEST_F(CullingTest, whatIsOutOfSightIsNotHiddenWhenItComesIntoSight)
{
    makeCubes({placed(0, 0, 3, 2), placed(30, 0, 0)});
    RenderTarget target(side, side, GL_RGBA32F);
    for (int i = 0; i < 3; ++i)
        frame(target);
    EXPECT_FALSE(model->isCulled(1));
    camera.setToIdentity();
    camera.lookAt({30, 0, 10}, {30, 0, 0}, {0, 1, 0});
    frame(target);
    EXPECT_EQ(target.read().pixel(side / 2, side / 2).x(), 2.0f);
}

TEST_F(CullingTest, reversedDepthWorksToo)
{
    makeOccluderAndHidden();
    QMatrix4x4 reverse;
    reverse.scale(1, 1, -1);
    projection = reverse * projection;
    glDepthFunc(GL_GREATER);
    glClearDepth(0);
    RenderTarget target(side, side, GL_RGBA32F);
    for (int i = 0; i < 3; ++i)
        frame(target);
    EXPECT_EQ(target.read().pixel(side / 2, side / 2).x(), 1.0f);
    EXPECT_FALSE(model->isCulled(0));
    EXPECT_TRUE(model->isCulled(1));
    model->setModelMatrix(0, placed(4.5f, 0, 0));
    frame(target);
    frame(target);
    EXPECT_FALSE(model->isCulled(1));
}

TEST_F(CullingTest, driversThatOnlyCountSamplesServeToo)
{
    // A driver of OpenGL 3.2 without extensions.
    glGetStringi(GL_EXTENSIONS, 0);
    static const PFNGLGETSTRINGIPROC real = epoxy_glGetStringi;
    epoxy_glGetStringi = [](GLenum name, GLuint index) {
        const GLubyte *const text = real(name, index);
        return qstrcmp(reinterpret_cast<const char *>(text), "GL_ARB_occlusion_query2") == 0
            ? reinterpret_cast<const GLubyte *>("GL_hidden")
            : text;
    };
    makeOccluderAndHidden();
    RenderTarget target(side, side, GL_RGBA32F);
    QuerySpy spy;
    frame(target);
    epoxy_glGetStringi = real;
    frame(target);
    EXPECT_EQ(spy.lastTarget, GLenum(GL_SAMPLES_PASSED));
    EXPECT_FALSE(model->isCulled(0));
    EXPECT_TRUE(model->isCulled(1));
}

TEST_F(CullingTest, bothCullingsAddUp)
{
    makeCubes({placed(0, 0, 3, 2), placed(0, 0, -3), placed(100, 0)});
    RenderTarget target(side, side, GL_RGBA32F);
    frame(target);
    model->resetCulling();
    model->visibilityCull();
    model->frustumCull(projection * camera);
    EXPECT_FALSE(model->isCulled(0));
    EXPECT_TRUE(model->isCulled(1));
    EXPECT_TRUE(model->isCulled(2));
    model->resetCulling();
    EXPECT_EQ(model->culledCount(), 0);
}

TEST_F(CullingTest, queriesAreMadeOnlyWhereTheyTellSomething)
{
    makeOccluderAndHidden();
    QuerySpy spy;
    const auto queriesOf = [&](const std::function<void()> &drawing) {
        spy.made = 0;
        spy.reads = 0;
        spy.conditions = 0;
        drawing();
        EXPECT_EQ(spy.reads, 0);
        EXPECT_EQ(spy.conditions, 0);
        return spy.made;
    };
    TextureManager *const manager = TextureManager::Instance();
    RenderTarget target(side, side, GL_RGBA32F);
    EXPECT_EQ(queriesOf([&] { draw(manager); }), 0); // visibilityCull() was not called.
    model->visibilityCull();
    EXPECT_EQ(queriesOf([&] { draw(nullptr); }), 0);
    glDisable(GL_DEPTH_TEST);
    EXPECT_EQ(queriesOf([&] { draw(manager); }), 0);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_ALWAYS);
    EXPECT_EQ(queriesOf([&] { draw(manager); }), 0);
    glDepthFunc(GL_LESS);
    glEnable(GL_RASTERIZER_DISCARD);
    EXPECT_EQ(queriesOf([&] { draw(manager); }), 0);
    glDisable(GL_RASTERIZER_DISCARD);
    {
        RenderTarget withoutDepth(side, side, GL_RGBA32F, false);
        EXPECT_EQ(queriesOf([&] { draw(manager); }), 0);
    }
    {
        const auto fitting = std::move(program);
        program = makeProgram({
            {GL_VERTEX_SHADER,
                QStringLiteral("#version 150\nuniform mat4 u_ProjectionMatrix;\n"
                               "uniform mat4 u_CameraMatrix;\nin vec3 va_Vertex;\nvoid main() { "
                               "gl_Position = u_ProjectionMatrix * u_CameraMatrix * vec4(va_Vertex, 1.0); "
                               "}\n")},
            {GL_FRAGMENT_SHADER,
                QStringLiteral("#version 150\nout uvec4 out_FragColor;\nvoid main() { out_FragColor = uvec4(7u); }\n")},
        });
        RenderTarget integers(side, side, GL_RGBA32UI);
        while (glGetError() != GL_NO_ERROR) { } // From clearing integers as colours.
        EXPECT_EQ(queriesOf([&] { draw(manager); }), 0);
        program = makeProgram({
            {GL_VERTEX_SHADER,
                QStringLiteral("#version 150\nuniform mat4 u_ProjectionMatrix;\nin vec3 va_Vertex;\n"
                               "void main() { gl_Position = u_ProjectionMatrix * vec4(va_Vertex, 1.0); "
                               "}\n")},
            {GL_FRAGMENT_SHADER,
                QStringLiteral("#version 150\nout vec4 out_FragColor;\nvoid main() { out_FragColor = vec4(1.0); }\n")},
        });
        RenderTarget colors(side, side, GL_RGBA32F);
        EXPECT_EQ(queriesOf([&] { draw(manager); }), 0);
        program.reset(const_cast<std::unique_ptr<ShaderProgram> &>(fitting).release());
    }
    {
        InstanceDataCollection collection(QStringLiteral("InstanceInfo"));
        collection.setRowCount(2);
        collection.bind(program.get(), manager);
        EXPECT_EQ(queriesOf([&] { draw(manager); }), 0);
        collection.unbind(program.get(), manager);
    }
    {
        GLuint query = 0;
        glGenQueries(1, &query);
        glBeginQuery(GL_ANY_SAMPLES_PASSED, query);
        EXPECT_EQ(queriesOf([&] { draw(manager); }), 0); // The host has a query of its own running.
        glEndQuery(GL_ANY_SAMPLES_PASSED);
        glDeleteQueries(1, &query);
        glGenQueries(1, &query);
        glBeginQuery(GL_SAMPLES_PASSED, query);
        EXPECT_EQ(queriesOf([&] { draw(manager); }), 0); // Also with the other target.
        glEndQuery(GL_SAMPLES_PASSED);
        glDeleteQueries(1, &query);
    }
    EXPECT_EQ(queriesOf([&] { draw(manager); }), 2);
    EXPECT_EQ(queriesOf([&] { draw(manager); }), 0); // Once per round.
    model->visibilityCull();
    EXPECT_EQ(queriesOf([&] { draw(manager); }), 2);
    model->resetCulling();
    EXPECT_EQ(queriesOf([&] { draw(manager); }), 0);
    takeGLErrors();
}

TEST_F(CullingTest, testingLeavesStateAndPictureAlone)
{
    makeOccluderAndHidden();
    RenderTarget target(side, side, GL_RGBA32F);
    draw(nullptr);
    const Image colorBefore = target.read();
    const Image depthBefore = target.readDepth();

    glEnable(GL_STENCIL_TEST);
    glPolygonOffset(0.25f, 3);
    glColorMask(GL_TRUE, GL_FALSE, GL_TRUE, GL_FALSE);
    glColorMaski(1, GL_FALSE, GL_TRUE, GL_FALSE, GL_TRUE);
    glCullFace(GL_FRONT);
    GLuint vao = 0;
    glGenVertexArrays(1, &vao);
    glBindVertexArray(vao);
    const auto state = [] {
        QVector<int> values;
        for (const GLenum name : {GL_DEPTH_FUNC, GL_DEPTH_WRITEMASK, GL_CURRENT_PROGRAM, GL_VERTEX_ARRAY_BINDING,
                 GL_POLYGON_MODE, GL_CULL_FACE_MODE, GL_FRONT_FACE, GL_ACTIVE_TEXTURE, GL_ARRAY_BUFFER_BINDING})
            values.append(glInteger(name));
        for (const GLenum name : {GL_CULL_FACE, GL_STENCIL_TEST, GL_POLYGON_OFFSET_FILL, GL_DEPTH_TEST, GL_BLEND})
            values.append(glFlag(name));
        for (GLuint buffer = 0; buffer < 3; ++buffer) {
            GLboolean mask[4];
            glGetBooleani_v(GL_COLOR_WRITEMASK, buffer, mask);
            for (const GLboolean channel : mask)
                values.append(channel);
        }
        GLfloat offset[2];
        glGetFloatv(GL_POLYGON_OFFSET_FACTOR, &offset[0]);
        glGetFloatv(GL_POLYGON_OFFSET_UNITS, &offset[1]);
        values.append(int(offset[0] * 100));
        values.append(int(offset[1] * 100));
        return values;
    };
    glDepthMask(GL_FALSE);
    const QVector<int> before = state();
    {
        QuerySpy spy;
        model->visibilityCull();
        draw(TextureManager::Instance());
        EXPECT_EQ(spy.made, 2);
    }
    EXPECT_EQ(state(), before);
    glBindVertexArray(0);
    glDeleteVertexArrays(1, &vao);
    EXPECT_EQ(maximumDifference(target.read(), colorBefore), 0);
    EXPECT_EQ(maximumDifference(target.readDepth(), depthBefore), 0);
    glPolygonOffset(0, 0);
}

TEST_F(CullingTest, lateResultsAreNotWaitedFor)
{
    makeOccluderAndHidden();
    RenderTarget target(side, side, GL_RGBA32F);
    frame(target);
    frame(target);
    EXPECT_TRUE(model->isCulled(1));
    QuerySpy spy;
    spy.areResultsLate = true;
    for (int i = 0; i < 3; ++i) {
        spy.conditions = 0;
        frame(target);
        EXPECT_FALSE(model->isCulled(1)); // Unknown: the driver decides.
        EXPECT_EQ(spy.conditions, 1);
        EXPECT_EQ(target.read().pixel(side / 2, side / 2).x(), 1.0f);
    }
    // Where samples mean nothing, no query is made.
    const auto conditionsOf = [&](const std::function<void()> &drawing) {
        spy.conditions = 0;
        drawing();
        return spy.conditions;
    };
    TextureManager *const manager = TextureManager::Instance();
    model->resetCulling();
    model->visibilityCull();
    glDisable(GL_DEPTH_TEST);
    EXPECT_EQ(conditionsOf([&] { draw(manager); }), 0);
    glEnable(GL_DEPTH_TEST);
    {
        RenderTarget withoutDepth(side, side, GL_RGBA32F, false);
        EXPECT_EQ(conditionsOf([&] { draw(manager); }), 0);
    }
    {
        RenderTarget again(side, side, GL_RGBA32F);
        EXPECT_EQ(conditionsOf([&] { draw(manager); }), 1);
    }
    // The driver's decision is right when the item comes into sight.
    model->setModelMatrix(0, placed(4.5f, 0, 0));
    frame(target);
    frame(target);
    EXPECT_EQ(target.read().pixel(side / 2, side / 2).x(), 2.0f);
    // Draws for shadows, and draws that ignore culling, make no conditional draws.
    spy.conditions = 0;
    draw(nullptr);
    {
        AutoBinder binder(program.get());
        model->draw(program.get(), 0, 0, WindingCounterClockwise, true);
    }
    EXPECT_EQ(spy.conditions, 0);
}

TEST_F(CullingTest, oldVerdictsAreForgottenWhenNobodyTests)
{
    makeOccluderAndHidden();
    RenderTarget target(side, side, GL_RGBA32F);
    frame(target);
    frame(target);
    EXPECT_TRUE(model->isCulled(1));
    model->resetCulling();
    model->visibilityCull(); // The previous round was tested in the frame above.
    EXPECT_TRUE(model->isCulled(1));
    model->resetCulling();
    model->visibilityCull(); // This round was not tested at all.
    EXPECT_FALSE(model->isCulled(1));
}

TEST_F(CullingTest, itemsOfLargeModelsAreTestedInTurns)
{
    QVector<QMatrix4x4> places{placed(0, 0, 3, 2)};
    for (int i = 1; i < 9000; ++i)
        places.append(placed(0.001f * float(i % 100), 0.01f * float(i / 100), -3, 0.1f));
    makeCubes(places);
    RenderTarget target(side, side, GL_RGBA32F);
    QuerySpy spy;
    int frames = 0;
    while (model->culledCount() < 8999 && frames < 6) {
        spy.made = 0;
        frame(target);
        EXPECT_LE(spy.made, 9000);
        if (frames == 0) {
            EXPECT_EQ(spy.made, 4096);
        }
        ++frames;
    }
    EXPECT_EQ(model->culledCount(), 8999);
    EXPECT_FALSE(model->isCulled(0));
}

TEST_F(CullingTest, queriesEndWithTheModel)
{
    makeOccluderAndHidden();
    RenderTarget target(side, side, GL_RGBA32F);
    QuerySpy spy;
    frame(target);
    ASSERT_EQ(spy.made, 2);
    EXPECT_TRUE(glIsQuery(spy.lastQuery));
    const GLObjectCounts before = glObjectCounts();
    model.clear();
    EXPECT_FALSE(glIsQuery(spy.lastQuery));
    EXPECT_EQ(glObjectCounts().programs, before.programs - 1);
}

TEST_F(CullingTest, visibilityCullWithoutContextMarksNothing)
{
    makeOccluderAndHidden();
    RenderTarget target(side, side, GL_RGBA32F);
    frame(target);
    context().doneCurrent();
    model->resetCulling();
    model->visibilityCull();
    EXPECT_EQ(model->culledCount(), 0);
    context().makeCurrent();
}

} // namespace

} // namespace Velmora::Kvz
