// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/ChainFinding.h>
#include <Chain/ChainResults.h>
#include <Chain/FrameValues.h>
#include <Chain/PassRegistry.h>
#include <Host/Export.h>

#include <QtCore/QRect>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

#include <memory>

class QColor;

namespace Velmora::Kvz {

class FramebufferObject;
class GPUModel;
class RenderPass;
class Texture;

/// Runs a chain of passes, once for each frame, in the current OpenGL context.
///
/// ```cpp
/// RenderChain chain;
/// if (!chain.setDescription(description))
///     qWarning("%s", qPrintable(chain.errorString()));
/// chain.setFrameValue(FrameValues::viewport, QRect(0, 0, 1280, 720));
/// chain.setCamera(camera, projection);
/// chain.setModel(model.data());
/// chain.renderFrame();
/// ```
///
/// **Wiring.** An input takes, in this order: its explicit connection; the value that was set for it; the nearest earlier
/// output of an enabled pass with the same port name and a kind that it takes; the frame's value; its default. Inputs of a
/// disabled pass see no outputs, and its outputs are null.
///
/// **State.** Before each pass: viewport (0, 0, width, height) of the pass's own viewport, else of the frame's; depth,
/// stencil and colour writes on; depth function GL_LESS; depth test, stencil test, blending, culling, scissor, depth clamp
/// and GL_FRAMEBUFFER_SRGB off; blend equation add, function (one, zero); cull back, front counter-clockwise, filled
/// polygons; clear colour as set by setClearColor(), clear depth 1, clear stencil 0; unpack alignment 4, no unpack buffer.
/// A frame keeps account of what its passes set, so that the driver need not be asked: passes of the standard registry take part in
/// that, and around all others GL is asked again. Without setRestoresState(), a frame of standard passes alone may leave programs,
/// vertex arrays, buffer bindings and the texture units that it uses empty; what a host had bound there is not kept. Bound framebuffers
/// are.
///
/// **Past.** Some passes keep something of earlier frames: a mean, the last picture, a place in a sequence of jitters. The chain
/// has them forget what is no longer true. Where items or the camera move, and where lights, values of the frame or of
/// passes or the clear colour change, means of frames start over; a pass that follows a velocity goes on, as does the jitter that it needs.
/// Another model, other material rows of a host, another size, another value of a pass that keeps a past, another set of passes, options
/// or connections, and reloadShaders() end every past: the next frame is as that of a new chain. A frame that has no past to be averaged
/// or resolved with is drawn without jitter. Culling and the previous matrices of items belong to the chain, not to the model, so two
/// chains may draw one model. What the chain cannot see, such as another content of an image of the host, takes forgetPast().
/// Numbers that a connection takes from the previous frame stay.
///
/// **Repeatability.** Equal chains give equal pictures in equal frames, whatever else the process has drawn: random jitter
/// draws from a generator of the chain's own, which begins with the past.
///
/// **Images.** Pooled textures go back to the pool when their last consumer has run, whether or not that pass gives its
/// inputs back itself.
///
/// **Contexts.** Passes are made in the first frame and belong to the context that is current then. When that context's end
/// is announced, or its QOpenGLContext is destroyed while it is current, they are torn down. In another context the chain
/// makes new ones, with their values and options. Use one chain for each context.
///
/// **Programs.** Passes do not report a shader that the driver refuses, and continue without it. A frame in which a
/// pass built or used such a program is rendered to its end, but its picture is wrong: renderFrame() returns false for
/// it and for every later one in which the pass still uses the program, and errorString() is one line with the pass and
/// the driver's decisive words. The log has them once. Programs that failed before the frame, or outside the chain, do
/// not count.
///
/// All operations run on the thread of the context; whether they need it current is said with each.
class KVZ_HOST_EXPORT RenderChain
{
public:
    /// `registry` must live as long as the chain, and not change meanwhile.
    explicit RenderChain(const PassRegistry &registry = PassRegistry::standard());
    /// Deletes the passes; with their context current, their GL objects too.
    ~RenderChain();

    /// Replaces the chain. False when the new one has errors: errorString() is the first one, findings() has all, and
    /// renderFrame() refuses. Passes that both chains have, by name, class and options, live on.
    bool setDescription(const ChainDescription &description);
    /// The chain with all changes made since: what a file would hold.
    const ChainDescription &description() const;
    /// What validation says of the chain with the frame values that are set at present, the standard ones taken for
    /// granted.
    QVector<ChainFinding> findings() const;
    /// The last failure in one line, and the driver's messages about shaders in further ones; empty when there was none.
    QString errorString() const;

    /// \name Changes to the chain
    /// Each returns false, with errorString(), for a pass or port that does not exist, a value that does not convert, and a
    /// change that brings the chain a new error; nothing changes then. A change resolves the chain again, except for a new
    /// value of an input that has one set already, if no finding and no source depends on it: that is cheap enough for each
    /// frame.
    /// @{
    /// Sets a value that stays in force until clearValue(); an invalid one says "null".
    bool setValue(const QString &pass, const QString &port, const QVariant &value);
    bool clearValue(const QString &pass, const QString &port);
    bool setEnabled(const QString &pass, bool enabled);
    /// Connects an input explicitly, until disconnect().
    bool connect(const QString &pass, const QString &port, const ChainSource &source);
    bool disconnect(const QString &pass, const QString &port);
    /// Sets a construction option; the pass is made again in the next frame.
    bool setOption(const QString &pass, const QString &option, const QVariant &value);
    /// Publishes an output under a name.
    bool addExport(const QString &name, const ChainOutput &output);
    bool removeExport(const QString &name);
    /// @}

    /// \name Values of the frame
    /// They stay in force until they are set again. An invalid value removes the name. The lights of the description
    /// are the frame's, placed around its bounds, unless others are set.
    /// @{
    void setFrameValue(const QString &port, const QVariant &value);
    QVariant frameValue(const QString &port) const;
    QStringList frameValueNames() const;
    /// Target rectangle in pixels, y upwards.
    void setViewport(const QRect &viewport);
    /// World to camera, and the projection without jitter.
    void setCamera(const QMatrix4x4 &camera, const QMatrix4x4 &projection);
    /// The model to draw, not owned; null for none. The scene bounds follow it unless they are set apart. For each frame the chain
    /// puts a ModelPast of its own in force, and takes it back at the end. Also see setAdvancesModels().
    void setModel(GPUModel *model);
    /// Where the last pass presents; null: the default framebuffer, 0. Not owned.
    void setFramebuffer(FramebufferObject *framebuffer);
    /// @}

    /// Ends every past, as another model does: the next frame depends on none before it. For changes that the chain cannot see.
    void forgetPast();

    /// Renders one frame; needs a current context. False, with errorString(), and with nothing rendered: without a context,
    /// for a chain with errors, for a viewport of the frame or of an enabled pass that is missing, empty or beyond the
    /// driver's limit, and for a pass that cannot be made. False, with errorString(), and rendered wrong: when the driver
    /// refuses a program of a pass. A pass that misses a required input is skipped, and so is one that would present to the default
    /// framebuffer of a context without a surface. That, and a failure that a pass reports, is said once in the log.
    bool renderFrame();

    /// \name Frames only when needed
    /// What the passes say about themselves tells how many frames a picture takes: one that keeps nothing is done with its frame; a mean
    /// with as many frames as it asks for, or 64 where nothing says how many; a picture that a velocity leads on after 3; an exposure
    /// from the frame before, culling by the last frame, and a velocity with one more each. After a change the count begins anew.
    ///
    /// A host that draws on demand renders while needsFrame() says so, and when its surface has lost the picture:
    /// ```cpp
    /// chain.setHoldsPicture(true);
    /// // When the surface is to be painted:
    /// chain.renderFrame();
    /// if (chain.needsFrame())
    ///     update(); // Refine while idle.
    /// ```
    /// These questions need no context and do not wait for one. They look at the models and lights of the frame, which must live.
    /// @{
    /// Whether a frame would show something else than the last one: there was none, the chain, its values, models or lights have
    /// changed since, a capture is wanted, or the chain refines its picture. Another framebuffer alone does not count, and rows of a host
    /// are compared in renderFrame() alone, since they are bound around it. False for a chain with errors, and after a frame that came out
    /// wrong, until something changes.
    bool needsFrame() const;
    /// Whether the picture of the last frame is final: nothing has changed since, and no further frame would make it better.
    bool converged() const;
    /// How many more frames the picture takes, as things are now; 0 when it is done, and for a chain with errors. Below 0: it has no
    /// end, since a class registered elsewhere says that it does not settle (PassInfo::framesToSettle).
    int framesToConvergence() const;
    /// Whether the chain holds a picture that is done: renderFrame() then runs no pass, and presents the same picture bit by bit, wherever
    /// the passes would present now. Exports stay as they were. Off from the start, since who measures, counts or accumulates frames
    /// wants each of them.
    ///
    /// A change, a capture that is wanted, or an export that was released ends it. The copy takes one blit when the picture is done and
    /// one in each frame after that, and the memory of the picture. What the host draws over the picture is not held. Where
    /// nothing can be copied out of what the chain presents to, it goes on rendering, with one line in the log.
    void setHoldsPicture(bool holds);
    bool holdsPicture() const;
    /// @}

    /// \name Shader files
    /// @{
    /// The files that passes of this chain have shaders from, as absolute paths: those that options name, and what these
    /// include. Needs no context.
    QStringList shaderFiles() const;
    /// Makes the passes with shader files again, from the files as they are now; needs a current context. False, with
    /// errorString(), when one of them is gone or does not compile: then all passes stay and work on as they are.
    bool reloadShaders();
    /// @}

    /// Deletes the passes with their GL objects; the next frame makes new ones. Call it with the context current.
    void releaseContext();

    /// \name Results
    /// @{
    /// The value of an exported output in the last frame, valid until the next one or releaseExports().
    QVariant exportedValue(const QString &name) const;
    Texture *exportedTexture(const QString &name) const;
    /// Gives the exported textures back to the pool before the next frame does.
    void releaseExports();

    using Capture = PassCapture;
    /// Asks for a picture of an output in the next frame, taken right after its pass ran. False as for changes to the chain,
    /// and for a port that holds neither a texture nor shadow map data, whose layers become a contact sheet.
    bool requestCapture(const ChainOutput &output);
    /// Asks for pictures of all such outputs of all enabled passes in the next frame, except hidden ones.
    void requestAllCaptures();
    /// Asks for the texels of the same outputs in place of pictures, in the next frame; only those of 2D images are there then.
    void requestAllTexels();
    /// The pictures of the last frame, which the chain then forgets.
    QVector<Capture> takeCaptures();

    using PassTiming = Velmora::Kvz::PassTiming;
    /// Whether passes are timed. GPU times come from timestamps, read frames later without a stall.
    void setTimingEnabled(bool enabled);
    bool isTimingEnabled() const;
    /// One entry for each pass, in chain order.
    QVector<PassTiming> timings() const;
    /// Waits for the GPU times of all frames; needs the context current.
    void finishTimings();
    void resetTimings();
    /// @}

    /// The colour that clears use; transparent black from the start.
    void setClearColor(const QColor &color);
    /// Whether the state found before the first pass comes back after the last: bindings, masks, tests, blending, viewport
    /// and everything else that the baseline sets. Off from the start.
    void setRestoresState(bool restores);
    /// Whether each frame ends with GPUModel::advanceFrame() for the models that it drew; true unless set. The chain itself does not
    /// need it: each chain knows where items were in its own last frame. Turn it off where the host draws the model by
    /// passes of its own, and calls advanceFrame() itself.
    void setAdvancesModels(bool advances);

    /// Where an input takes its value at present.
    struct InputSource
    {
        enum class Kind { Default, Value, Output, Previous, FrameValue };
        Kind kind = Kind::Default;
        bool isExplicit = false; ///< The chain names the connection, also one to nothing.
        QString pass; ///< Of Output and Previous.
        QString port; ///< Of Output, Previous and FrameValue.
    };
    InputSource inputSource(const QString &pass, const QString &port) const;
    /// The pass object that ran last under a name; null before the first frame. For inspectors and tests.
    RenderPass *pass(const QString &name) const;
    /// Pass objects alive, several for passes that are kept for each value.
    int passObjectCount() const;

private:
    Q_DISABLE_COPY(RenderChain)

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Velmora::Kvz
