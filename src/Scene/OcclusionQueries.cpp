// SPDX-License-Identifier: MIT
#include "OcclusionQueries.h"

#include <GL/AutoBinder.h>
#include <GL/AutoDisabler.h>
#include <GL/AutoEnabler.h>
#include <GL/GLExtensions.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// Visible items that are tested in a round. Hidden ones are all tested, so that none comes back late.
constexpr int visibleTestsPerRound = 4096;

/// Views that are kept. A host that never begins a new round must not grow them with each move of its camera.
constexpr int mostViews = 8;

/// How far a box stands out from its item, at least: an item must never hide its own box, and one between two pixels must
/// not count as hidden, as the next frame may see it elsewhere.
constexpr float marginOfDiagonal = 0.01f;
constexpr float marginInPixels = 1.5f;

const QString projectionUniform = QStringLiteral("u_ProjectionMatrix");
const QString cameraUniform = QStringLiteral("u_CameraMatrix");

// The bits of a vertex number choose the corner.
const QString boxVertexSource = QStringLiteral(R"(#version 150
uniform mat4 u_ProjectionMatrix;
uniform mat4 u_CameraMatrix;
uniform vec3 u_Box[2];

void main()
{
    vec3 corner = vec3(gl_VertexID & 1, (gl_VertexID >> 1) & 1, gl_VertexID >> 2);
    gl_Position = u_ProjectionMatrix * u_CameraMatrix * vec4(mix(u_Box[0], u_Box[1], corner), 1.0);
}
)");

const QString boxFragmentSource = QStringLiteral(R"(#version 150
out vec4 out_FragColor;

void main()
{
    out_FragColor = vec4(1.0);
}
)");

constexpr unsigned int boxIndices[] = {
    0, 2, 1, 1, 2, 3, // z minimum
    4, 5, 6, 5, 7, 6, // z maximum
    0, 1, 4, 1, 5, 4, // y minimum
    2, 6, 3, 3, 6, 7, // y maximum
    0, 4, 2, 2, 4, 6, // x minimum
    1, 3, 5, 3, 7, 5, // x maximum
};
constexpr int boxIndexCount = sizeof(boxIndices) / sizeof(boxIndices[0]);

GLint integerState(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

/// The depth comparison for boxes under a comparison for items: equal depths show. GL_NEVER where the comparison in force
/// does not say what lies in front.
GLenum boxDepthFunction()
{
    switch (integerState(GL_DEPTH_FUNC)) {
    case GL_LESS:
    case GL_LEQUAL:
        return GL_LEQUAL;
    case GL_GREATER:
    case GL_GEQUAL:
        return GL_GEQUAL;
    default:
        return GL_NEVER;
    }
}

GLint attachmentParameter(GLenum attachment, GLenum parameter)
{
    GLint value = 0;
    glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, attachment, parameter, &value);
    return value;
}

bool hasDepthBuffer()
{
    const bool isOwn = integerState(GL_DRAW_FRAMEBUFFER_BINDING) != 0;
    return attachmentParameter(isOwn ? GL_DEPTH_ATTACHMENT : GL_DEPTH, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE)
        != GL_NONE;
}

bool hasIntegerTarget()
{
    const int count = integerState(GL_MAX_DRAW_BUFFERS);
    for (int i = 0; i < count; ++i) {
        const GLenum attachment = GLenum(integerState(GL_DRAW_BUFFER0 + GLenum(i)));
        if (attachment < GL_COLOR_ATTACHMENT0 || attachment > GL_COLOR_ATTACHMENT31
            || attachmentParameter(attachment, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE) == GL_NONE)
            continue;
        const GLint type = attachmentParameter(attachment, GL_FRAMEBUFFER_ATTACHMENT_COMPONENT_TYPE);
        if (type == GL_INT || type == GL_UNSIGNED_INT)
            return true;
    }
    return false;
}

/// Whether a query of the host is active. One kind of sample query excludes the other.
bool isCounting(GLenum queryTarget)
{
    GLint query = 0;
    glGetQueryiv(queryTarget, GL_CURRENT_QUERY, &query);
    return query != 0;
}

/// The matrix that a program holds.
QMatrix4x4 matrixUniform(const ShaderProgram *program, const QString &name)
{
    QMatrix4x4 matrix;
    glGetUniformfv(program->programID(), program->getUniformLocation(name), matrix.data());
    return matrix;
}

/// Says how large pixels are in the world.
class PixelScale
{
public:
    PixelScale(const QMatrix4x4 &projection, const QMatrix4x4 &camera)
        : m_depthRow((projection * camera).row(3))
    {
        GLint viewport[4] = {};
        glGetIntegerv(GL_VIEWPORT, viewport);
        m_sizeAtUnitDepth = std::max(2 / (std::abs(projection(0, 0)) * float(viewport[2])),
            2 / (std::abs(projection(1, 1)) * float(viewport[3])));
    }

    /// World units that a pixel covers at a point.
    float at(const QVector3D &point) const
    {
        return m_sizeAtUnitDepth * std::abs(QVector4D::dotProduct(m_depthRow, QVector4D(point, 1)));
    }

private:
    QVector4D m_depthRow; ///< Gives a point's clip-space w.
    float m_sizeAtUnitDepth;
};

/// Keeps colour and depth as they are while boxes are drawn, for a scope.
class BoxDrawingState
{
public:
    BoxDrawingState()
        : m_culling(GL_CULL_FACE),
          m_stencil(GL_STENCIL_TEST),
          m_offset(GL_POLYGON_OFFSET_FILL),
          m_colorMasks(size_t(integerState(GL_MAX_DRAW_BUFFERS))),
          m_depthFunction(integerState(GL_DEPTH_FUNC))
    {
        for (size_t i = 0; i < m_colorMasks.size(); ++i)
            glGetBooleani_v(GL_COLOR_WRITEMASK, GLuint(i), m_colorMasks[i].data());
        glGetBooleanv(GL_DEPTH_WRITEMASK, &m_depthMask);
        glGetIntegerv(GL_POLYGON_MODE, m_polygonMode);
        glGetFloatv(GL_POLYGON_OFFSET_FACTOR, &m_offsetFactor);
        glGetFloatv(GL_POLYGON_OFFSET_UNITS, &m_offsetUnits);

        const GLenum function = boxDepthFunction();
        // No factor on the slope: a side seen edge-on would come in front of everything.
        const float towardsViewer = function == GL_GEQUAL ? 2.0f : -2.0f;
        glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
        glDepthMask(GL_FALSE);
        glDepthFunc(function);
        glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
        glPolygonOffset(0, towardsViewer);
    }

    ~BoxDrawingState()
    {
        for (size_t i = 0; i < m_colorMasks.size(); ++i) {
            const std::array<GLboolean, 4> &mask = m_colorMasks[i];
            glColorMaski(GLuint(i), mask[0], mask[1], mask[2], mask[3]);
        }
        glDepthMask(m_depthMask);
        glDepthFunc(GLenum(m_depthFunction));
        glPolygonMode(GL_FRONT_AND_BACK, GLenum(m_polygonMode[0]));
        glPolygonOffset(m_offsetFactor, m_offsetUnits);
    }

private:
    Q_DISABLE_COPY(BoxDrawingState)

    AutoDisabler m_culling;
    AutoDisabler m_stencil;
    AutoEnabler m_offset;
    std::vector<std::array<GLboolean, 4>> m_colorMasks;
    GLint m_depthFunction;
    GLboolean m_depthMask = GL_TRUE;
    GLint m_polygonMode[2] = {GL_FILL, GL_FILL};
    float m_offsetFactor = 0;
    float m_offsetUnits = 0;
};

} // namespace

OcclusionQueries::OcclusionQueries(int itemCount)
    : m_itemCount(itemCount),
      m_owner(GLObject::Sharing::OneContext)
{ }

OcclusionQueries::~OcclusionQueries()
{
    const bool isKnown = m_owner.isKnownToCurrentContext();
    for (const View &view : m_views) {
        for (const Test &test : view.tests) {
            if (test.query && isKnown)
                glDeleteQueries(1, &test.query);
            else if (test.query)
                m_owner.leaveName(GLObject::Kind::Query, test.query);
        }
    }
}

/// Makes them those of the current context, unless they are claimed already.
void OcclusionQueries::claim()
{
    if (m_isClaimed || !OpenGLDeviceContext::currentHandle())
        return;
    m_owner.claim();
    m_isClaimed = true;
}

void OcclusionQueries::collect(const std::function<void(int, Verdict)> &report)
{
    claim();
    const bool isKnown = m_owner.isKnownToCurrentContext();
    if (isKnown) {
        for (View &view : m_views) {
            for (Test &test : view.tests)
                fetchResult(test);
        }
    }
    for (int item = 0; item < m_itemCount; ++item)
        report(item, isKnown && !m_hasUntestedViews ? verdict(item) : Verdict::Visible);

    ++m_round;
    m_running = true;
    m_viewCount = 0;
    m_hasUntestedViews = false;
    if (m_itemCount > 0)
        m_firstVisibleTested = (m_firstVisibleTested + visibleTestsPerRound) % m_itemCount;
}

void OcclusionQueries::fetchResult(Test &test) const
{
    if (!test.isPending)
        return;
    GLuint isAvailable = GL_FALSE;
    glGetQueryObjectuiv(test.query, GL_QUERY_RESULT_AVAILABLE, &isAvailable);
    if (!isAvailable)
        return;
    GLuint samples = 0;
    glGetQueryObjectuiv(test.query, GL_QUERY_RESULT, &samples);
    test.wasHidden = samples == 0;
    test.isPending = false;
}

OcclusionQueries::Verdict OcclusionQueries::verdict(int item) const
{
    Verdict verdict = Verdict::Visible;
    for (int view = 0; view < m_viewCount; ++view) {
        const Test &test = m_views[size_t(view)].tests[size_t(item)];
        if (test.drawnRound != m_round)
            continue;
        if (test.round != m_round || !test.wasHidden)
            return Verdict::Visible;
        if (verdict != Verdict::Undecided)
            verdict = test.isPending ? Verdict::Undecided : Verdict::Hidden;
    }
    return verdict;
}

void OcclusionQueries::stop()
{
    m_running = false;
}

int OcclusionQueries::view(const ShaderProgram *program)
{
    if (!m_running || !program->hasUniform(projectionUniform) || !program->hasUniform(cameraUniform))
        return -1;
    createResources();
    const QMatrix4x4 projection = matrixUniform(program, projectionUniform);
    const QMatrix4x4 camera = matrixUniform(program, cameraUniform);
    for (int view = 0; view < m_viewCount; ++view) {
        if (m_views[size_t(view)].projection == projection && m_views[size_t(view)].camera == camera)
            return view;
    }
    if (m_viewCount == mostViews) {
        m_hasUntestedViews = true;
        return -1;
    }
    if (m_viewCount == int(m_views.size())) {
        m_views.emplace_back();
        m_views.back().tests.resize(size_t(m_itemCount));
    }
    View &view = m_views[size_t(m_viewCount)];
    view.projection = projection;
    view.camera = camera;
    return m_viewCount++;
}

bool OcclusionQueries::tellHere() const
{
    return m_owner.isKnownToCurrentContext() && m_program->isLinked() && glIsEnabled(GL_DEPTH_TEST)
        && boxDepthFunction() != GL_NEVER && !glIsEnabled(GL_RASTERIZER_DISCARD) && hasDepthBuffer()
        && !hasIntegerTarget() && !isCounting(GL_SAMPLES_PASSED)
        && (m_queryTarget == GL_SAMPLES_PASSED || !isCounting(GL_ANY_SAMPLES_PASSED));
}

unsigned int OcclusionQueries::query(int view, int item) const
{
    if (view < 0 || !m_owner.isKnownToCurrentContext())
        return 0;
    const Test &test = m_views[size_t(view)].tests[size_t(item)];
    return test.round + 1 == m_round ? test.query : 0;
}

bool OcclusionQueries::isDue(const Test &test, int item) const
{
    if (test.round == m_round)
        return false;
    if (test.wasHidden)
        return true;
    if (test.isPending)
        return false;
    return (item - m_firstVisibleTested + m_itemCount) % m_itemCount < visibleTestsPerRound;
}

void OcclusionQueries::testBoxes(
    int view, const std::vector<Bounds> &bounds, const std::function<bool(int)> &takesPart, bool tells)
{
    View &tested = m_views[size_t(view)];
    for (int item = 0; item < m_itemCount; ++item) {
        if (takesPart(item))
            tested.tests[size_t(item)].drawnRound = m_round;
    }
    if (!tells)
        return;

    const Frustum frustum(tested.projection * tested.camera);
    const PixelScale pixelScale(tested.projection, tested.camera);
    const Frustum::Side nearSide = boxDepthFunction() == GL_GEQUAL ? Frustum::Back : Frustum::Front;

    BoxDrawingState state;
    AutoBinder programBinder(m_program.get());
    m_program->setUniform(projectionUniform, tested.projection);
    m_program->setUniform(cameraUniform, tested.camera);
    AutoBinder vaoBinder(&m_vao);
    for (int item = 0; item < m_itemCount; ++item) {
        Test &test = tested.tests[size_t(item)];
        if (!isDue(test, item) || !takesPart(item))
            continue;
        const Bounds &itemBounds = bounds[size_t(item)];
        const QVector3D diagonal = itemBounds.maximum() - itemBounds.minimum();
        const QVector3D center = itemBounds.minimum() + diagonal / 2;
        const Bounds box =
            itemBounds.grown(std::max(marginOfDiagonal * diagonal.length(), marginInPixels * pixelScale.at(center)));
        // The near plane cuts away the faces of a box that the viewer stands in, although the item may be visible. And a
        // test of a box out of sight would say nothing about the frame in which it comes into sight.
        if (frustum.isCutBy(nearSide, box) || frustum.isOutside(box))
            test.wasHidden = false;
        else
            drawBox(test, box);
    }
}

void OcclusionQueries::drawBox(Test &test, const Bounds &bounds)
{
    if (!test.query)
        glGenQueries(1, &test.query);
    glUniform3fv(m_boxLocation, 2, bounds.corners.data());
    glBeginQuery(m_queryTarget, test.query);
    glDrawElements(GL_TRIANGLES, boxIndexCount, GL_UNSIGNED_INT, nullptr);
    glEndQuery(m_queryTarget);
    test.round = m_round;
    test.isPending = true;
}

void OcclusionQueries::createResources()
{
    if (m_program)
        return;
    claim();
    const QVector<GLuint> left = GLObject::takeLeftNames(GLObject::Kind::Query);
    if (!left.isEmpty())
        glDeleteQueries(left.size(), left.constData());
    m_queryTarget = hasGLExtension("GL_ARB_occlusion_query2") ? GL_ANY_SAMPLES_PASSED : GL_SAMPLES_PASSED;

    m_program = std::make_unique<ShaderProgram>();
    m_program->setFragDataLocations({QStringLiteral("out_FragColor")});
    m_program->addShader(GL_VERTEX_SHADER, boxVertexSource, QString());
    m_program->addShader(GL_FRAGMENT_SHADER, boxFragmentSource, QString());
    m_program->compile();
    m_program->link();
    m_boxLocation = m_program->getUniformLocation(QStringLiteral("u_Box[0]"));

    m_indices.setTarget(GL_ELEMENT_ARRAY_BUFFER);
    m_indices.uploadGLuintData(boxIndices, boxIndexCount, GL_STATIC_DRAW);
    AutoBinder vaoBinder(&m_vao);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, m_indices.getBO());
}

} // namespace Velmora::Kvz
