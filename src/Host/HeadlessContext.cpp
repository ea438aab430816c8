// SPDX-License-Identifier: MIT
#include <Host/HeadlessContext.h>

#include <GL/OpenGLDeviceContext.h>
#include <Host/DriverMessages.h>

#include <QtCore/QVector>

#include <epoxy/egl.h>
#include <epoxy/gl.h>

#include <dlfcn.h>

namespace Velmora::Kvz {

namespace {

struct Version
{
    int major;
    int minor;
};

/// The core versions to request, newest first.
QVector<Version> versionsToTry(const HeadlessContext::Options &options)
{
    if (options.majorVersion > 0)
        return {{options.majorVersion, options.minorVersion}};
    return {{4, 6}, {4, 5}, {4, 3}, {4, 2}, {4, 0}, {3, 3}, {3, 2}};
}

/// libepoxy aborts the process when it finds no EGL library, so look first.
bool hasEGLLibrary()
{
    static void *const library = dlopen("libEGL.so.1", RTLD_LAZY | RTLD_GLOBAL);
    return library != nullptr;
}

bool hasClientExtension(const char *name)
{
    return epoxy_has_egl_extension(EGL_NO_DISPLAY, name);
}

struct DisplayChoice
{
    EGLDisplay display;
    const char *platform;
};

/// The displays worth trying. They come from the extension's entry point, because the core one needs a display to exist.
QVector<DisplayChoice> displaysToTry()
{
    QVector<DisplayChoice> displays;
    if (!hasEGLLibrary())
        return displays;
    if (qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY"))
        displays.append({eglGetDisplay(EGL_DEFAULT_DISPLAY), "display"});
    if (!hasClientExtension("EGL_EXT_platform_base"))
        return displays;
    if (hasClientExtension("EGL_MESA_platform_surfaceless"))
        displays.append(
            {eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr), "surfaceless"});
    if (hasClientExtension("EGL_EXT_device_enumeration") || hasClientExtension("EGL_EXT_device_base")) {
        EGLDeviceEXT devices[8];
        EGLint count = 0;
        if (eglQueryDevicesEXT(8, devices, &count)) {
            for (EGLint i = 0; i < count; ++i)
                displays.append({eglGetPlatformDisplayEXT(EGL_PLATFORM_DEVICE_EXT, devices[i], nullptr), "device"});
        }
    }
    return displays;
}

QString glString(GLenum name)
{
    return QString::fromLatin1(reinterpret_cast<const char *>(glGetString(name)));
}

} // namespace

struct HeadlessContext::Private
{
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
    EGLSurface surface = EGL_NO_SURFACE;
    QString platform;
    QString renderer;
    QString version;

    bool open(const DisplayChoice &choice, const Options &options);
    bool chooseContext(const Options &options);
};

bool HeadlessContext::Private::open(const DisplayChoice &choice, const Options &options)
{
    EGLint major = 0;
    EGLint minor = 0;
    if (choice.display == EGL_NO_DISPLAY || !eglInitialize(choice.display, &major, &minor))
        return false;
    display = choice.display;
    platform = QString::fromLatin1(choice.platform);
    return eglBindAPI(EGL_OPENGL_API) && chooseContext(options);
}

bool HeadlessContext::Private::chooseContext(const Options &options)
{
    const bool surfaceless = epoxy_has_egl_extension(display, "EGL_KHR_surfaceless_context");
    const EGLint configAttributes[] = {
        EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_SURFACE_TYPE, surfaceless ? 0 : EGL_PBUFFER_BIT, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint count = 0;
    if (!eglChooseConfig(display, configAttributes, &config, 1, &count) || count == 0)
        return false;
    const EGLContext shared = options.shareWith ? options.shareWith->d->context : EGL_NO_CONTEXT;
    const QVector<Version> versions = versionsToTry(options);
    for (const Version &wanted : versions) {
        const EGLint contextAttributes[] = {EGL_CONTEXT_MAJOR_VERSION_KHR, wanted.major, EGL_CONTEXT_MINOR_VERSION_KHR,
            wanted.minor, EGL_CONTEXT_OPENGL_PROFILE_MASK_KHR, EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT_KHR,
            EGL_CONTEXT_FLAGS_KHR, options.debug ? EGL_CONTEXT_OPENGL_DEBUG_BIT_KHR : 0, EGL_NONE};
        context = eglCreateContext(display, config, shared, contextAttributes);
        if (context != EGL_NO_CONTEXT)
            break;
    }
    if (context == EGL_NO_CONTEXT)
        return false;
    if (!surfaceless) {
        const EGLint surfaceAttributes[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
        surface = eglCreatePbufferSurface(display, config, surfaceAttributes);
    }
    if (eglMakeCurrent(display, surface, surface, context))
        return true;
    eglDestroyContext(display, context);
    context = EGL_NO_CONTEXT;
    return false;
}

HeadlessContext::HeadlessContext()
    : d(std::make_unique<Private>())
{ }

std::unique_ptr<HeadlessContext> HeadlessContext::create(QString *error)
{
    return create(Options(), error);
}

std::unique_ptr<HeadlessContext> HeadlessContext::create(const Options &options, QString *error)
{
    std::unique_ptr<HeadlessContext> headless(new HeadlessContext);
    QVector<DisplayChoice> displays = displaysToTry();
    if (options.shareWith) {
        displays = {{options.shareWith->d->display, "shared"}};
        // It may not have been used yet, and a group begins with its first device.
        options.shareWith->makeCurrent();
        OpenGLDeviceContext::current();
    }
    for (const DisplayChoice &choice : qAsConst(displays)) {
        if (headless->d->open(choice, options))
            break;
    }
    if (headless->d->context == EGL_NO_CONTEXT) {
        if (error)
            *error = options.majorVersion > 0
                ? QStringLiteral("no driver here gives an OpenGL %1.%2 core context through EGL")
                      .arg(options.majorVersion)
                      .arg(options.minorVersion)
                : QStringLiteral("no driver here gives an OpenGL 3.2 core context through EGL; install one, such as "
                                 "Mesa (libegl1, libgl1-mesa-dri)");
        return nullptr;
    }
    if (options.shareWith) {
        headless->d->platform = options.shareWith->platform();
        OpenGLDeviceContext::shareObjectsWith(options.shareWith->d->context);
    }
    headless->d->renderer = glString(GL_RENDERER);
    headless->d->version = glString(GL_VERSION);
    if (options.debug)
        logDriverMessages();
    return headless;
}

HeadlessContext::~HeadlessContext()
{
    if (d->context == EGL_NO_CONTEXT)
        return;
    const EGLDisplay previousDisplay = eglGetCurrentDisplay();
    const EGLContext previous = eglGetCurrentContext();
    const EGLSurface previousDraw = eglGetCurrentSurface(EGL_DRAW);
    const EGLSurface previousRead = eglGetCurrentSurface(EGL_READ);
    if (makeCurrent())
        OpenGLDeviceContext::announceContextEnd();
    if (previous != EGL_NO_CONTEXT && previous != d->context)
        eglMakeCurrent(previousDisplay, previousDraw, previousRead, previous);
    else
        doneCurrent();
    if (d->surface != EGL_NO_SURFACE)
        eglDestroySurface(d->display, d->surface);
    eglDestroyContext(d->display, d->context);
    // The display stays initialised: EGL has one per process, and another context may be using it.
}

bool HeadlessContext::makeCurrent()
{
    return eglMakeCurrent(d->display, d->surface, d->surface, d->context);
}

void HeadlessContext::doneCurrent()
{
    eglMakeCurrent(d->display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
}

bool HeadlessContext::isCurrent() const
{
    return eglGetCurrentContext() == d->context;
}

QString HeadlessContext::renderer() const
{
    return d->renderer;
}

QString HeadlessContext::version() const
{
    return d->version;
}

QString HeadlessContext::platform() const
{
    return d->platform;
}

} // namespace Velmora::Kvz
