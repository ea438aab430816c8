// SPDX-License-Identifier: MIT
// Frames of the comparison scene drawn by VTK, in the kinds that ready chains have: one line each, with the median time of a frame until
// the GPU is done, and of what all threads of the process computed for it, which is `work_ms` of kvz-bench. Run it beside `kvz-bench --benchmark_filter=^chain/`, with xvfb-run where there is no screen.
#include "ComparisonScene.h"

#include <Host/Camera.h>

#include <QtGui/QGuiApplication>

#include <vtkActor.h>
#include <vtkCamera.h>
#include <vtkCameraPass.h>
#include <vtkCellArray.h>
#include <vtkDepthOfFieldPass.h>
#include <vtkFloatArray.h>
#include <vtkLight.h>
#include <vtkMatrix4x4.h>
#include <vtkNew.h>
#include <vtkOpenGLRenderer.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkProperty.h>
#include <vtkRenderPassCollection.h>
#include <vtkRenderStepsPass.h>
#include <vtkRenderWindow.h>
#include <vtkRenderer.h>
#include <vtkSSAOPass.h>
#include <vtkSequencePass.h>
#include <vtkShadowMapBakerPass.h>
#include <vtkShadowMapPass.h>
#include <vtkUnsignedCharArray.h>
#include <vtkWindowToImageFilter.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <vector>

using namespace Velmora::Kvz;

namespace {

constexpr int width = 1280;
constexpr int height = 720;

vtkSmartPointer<vtkPolyData> polyDataOf(const MeshData &mesh)
{
    vtkNew<vtkPoints> points;
    points->SetDataTypeToFloat();
    vtkNew<vtkFloatArray> normals;
    normals->SetNumberOfComponents(3);
    for (int i = 0; i < mesh.positions.size(); ++i) {
        points->InsertNextPoint(mesh.positions[i].x(), mesh.positions[i].y(), mesh.positions[i].z());
        normals->InsertNextTuple3(mesh.normals[i].x(), mesh.normals[i].y(), mesh.normals[i].z());
    }
    vtkNew<vtkCellArray> triangles;
    for (int i = 0; i + 2 < mesh.indices.size(); i += 3) {
        const vtkIdType corners[] = {mesh.indices[i], mesh.indices[i + 1], mesh.indices[i + 2]};
        triangles->InsertNextCell(3, corners);
    }
    auto data = vtkSmartPointer<vtkPolyData>::New();
    data->SetPoints(points);
    data->GetPointData()->SetNormals(normals);
    data->SetPolys(triangles);
    return data;
}

/// A window without a picture on screen that shows a scene from the camera of the ready chains.
class Stage
{
public:
    Stage(const ComparisonScene &scene, double opacityOfLarge, int samples)
    {
        window->SetOffScreenRendering(1);
        window->SetSize(width, height);
        window->SetMultiSamples(samples);
        window->AddRenderer(renderer);
        renderer->GradientBackgroundOn();
        renderer->SetBackground(0.6, 0.6, 0.6);
        renderer->SetBackground2(0.25, 0.25, 0.25);
        QVector<QVector3D> points = scene.points();
        QPair<QVector3D, QVector3D> bounds(points.first(), points.first());
        for (const QVector3D &point : points) {
            for (int axis = 0; axis < 3; ++axis) {
                bounds.first[axis] = std::min(bounds.first[axis], point[axis]);
                bounds.second[axis] = std::max(bounds.second[axis], point[axis]);
            }
        }
        const Camera camera = frameScene(bounds, CameraView(), QSize(width, height));
        const QMatrix4x4 world = camera.cameraMatrix.inverted();
        const QVector3D eye = world.column(3).toVector3D();
        const QVector3D ahead = eye - 10 * world.column(2).toVector3D();
        vtkCamera *const view = renderer->GetActiveCamera();
        view->SetPosition(eye.x(), eye.y(), eye.z());
        view->SetFocalPoint(ahead.x(), ahead.y(), ahead.z());
        view->SetViewUp(0, 1, 0);
        view->SetViewAngle(CameraView().fieldOfView);
        view->SetClippingRange(camera.nearPlane, camera.farPlane);
        for (const ComparisonScene::Item &item : scene.items) {
            vtkNew<vtkPolyDataMapper> mapper;
            mapper->SetInputData(polyDataOf(item.mesh));
            vtkNew<vtkActor> actor;
            actor->SetMapper(mapper);
            vtkNew<vtkMatrix4x4> matrix;
            for (int row = 0; row < 4; ++row) {
                for (int column = 0; column < 4; ++column)
                    matrix->SetElement(row, column, double(item.modelMatrix(row, column)));
            }
            actor->SetUserMatrix(matrix);
            vtkProperty *const property = actor->GetProperty();
            property->SetColor(double(item.colour.x()), double(item.colour.y()), double(item.colour.z()));
            property->SetAmbient(0.15);
            property->SetDiffuse(0.85);
            property->SetSpecular(double(comparisonSpecular));
            property->SetSpecularPower(double(comparisonShininess));
            if (item.mesh.indices.size() > 900)
                property->SetOpacity(opacityOfLarge);
            renderer->AddActor(actor);
        }
    }

    /// Seconds of a frame until the GPU is done.
    double frame()
    {
        const auto start = std::chrono::steady_clock::now();
        window->Render();
        window->WaitForCompletion();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

    vtkNew<vtkRenderWindow> window;
    vtkNew<vtkOpenGLRenderer> renderer;
};

/// What all threads of the process have computed.
double processSeconds()
{
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + long(values.size() / 2), values.end());
    return values[values.size() / 2];
}

void measure(const char *kind, Stage &stage)
{
    for (int i = 0; i < 4; ++i)
        stage.frame();
    std::vector<double> seconds;
    std::vector<double> work;
    double sum = 0;
    while (seconds.size() < 5 || (sum < 2 && seconds.size() < 60)) {
        const double before = processSeconds();
        seconds.push_back(stage.frame());
        work.push_back(processSeconds() - before);
        sum += seconds.back();
    }
    vtkNew<vtkUnsignedCharArray> pixels;
    stage.window->GetRGBACharPixelData(0, 0, width - 1, height - 1, 0, pixels);
    // A frame that shows nothing of the scene measures nothing.
    unsigned char least = 255;
    unsigned char most = 0;
    for (vtkIdType i = 0; i < pixels->GetNumberOfTuples(); ++i) {
        least = std::min(least, pixels->GetTypedComponent(i, 0));
        most = std::max(most, pixels->GetTypedComponent(i, 0));
    }
    std::printf("%-14s %9.2f ms, work %9.2f ms%s\n", kind, 1e3 * median(seconds), 1e3 * median(work),
        most - least < 60 ? "  (shows nothing)" : "");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication application(argc, argv);
    ComparisonScene whole;
    QString error;
    if (!whole.loadWhole(&error)) {
        std::fprintf(stderr, "kvz-peer-vtk: %s\n", qPrintable(error));
        return 1;
    }
    const auto isAsked = [&](const char *kind) {
        return argc < 2
            || std::any_of(argv + 1, argv + argc, [kind](const char *name) { return !std::strcmp(name, kind); });
    };
    const auto run = [&](const char *kind, const ComparisonScene &scene, double opacity, int samples,
                         const std::function<void(Stage &)> &setUp) {
        if (!isAsked(kind))
            return;
        Stage stage(scene, opacity, samples);
        setUp(stage);
        measure(kind, stage);
    };
    std::printf("VTK %s, %d triangles, %d x %d\n", GetVTKVersion(), whole.triangles(), width, height);
    run("plain", whole, 1, 0, [](Stage &) {});
    run("few", ComparisonScene::ofFewTriangles(), 1, 0, [](Stage &) {});
    run("multisampled", whole, 1, 4, [](Stage &) {});
    run("fxaa", whole, 1, 0, [](Stage &stage) { stage.renderer->UseFXAAOn(); });
    // Without peeling it blends by weight.
    run("weighted", whole, 0.5, 0, [](Stage &) {});
    run("peeling", whole, 0.5, 0, [](Stage &stage) {
        stage.renderer->UseDepthPeelingOn();
        stage.renderer->SetMaximumNumberOfPeels(100);
        stage.renderer->SetOcclusionRatio(0);
        stage.window->SetAlphaBitPlanes(1);
    });
    run("shadow", whole, 1, 0, [](Stage &stage) {
        vtkNew<vtkLight> light;
        light->SetPositional(false);
        light->SetPosition(7, 12, 4);
        light->SetFocalPoint(0, 0, 0);
        stage.renderer->AddLight(light);
        vtkNew<vtkShadowMapPass> shadows;
        shadows->GetShadowMapBakerPass()->SetResolution(1024);
        vtkNew<vtkRenderPassCollection> passes;
        passes->AddItem(shadows->GetShadowMapBakerPass());
        passes->AddItem(shadows);
        vtkNew<vtkSequencePass> sequence;
        sequence->SetPasses(passes);
        vtkNew<vtkCameraPass> camera;
        camera->SetDelegatePass(sequence);
        stage.renderer->SetPass(camera);
    });
    run("depth-of-field", whole, 1, 0, [](Stage &stage) {
        vtkNew<vtkRenderStepsPass> steps;
        vtkNew<vtkDepthOfFieldPass> lens;
        lens->SetDelegatePass(steps);
        stage.renderer->SetPass(lens);
    });
    run("obscurance", whole, 1, 0, [](Stage &stage) {
        vtkNew<vtkRenderStepsPass> steps;
        vtkNew<vtkSSAOPass> obscurance;
        obscurance->SetRadius(0.6);
        obscurance->SetKernelSize(13);
        obscurance->BlurOn();
        obscurance->SetDelegatePass(steps);
        stage.renderer->SetPass(obscurance);
    });
    return 0;
}
