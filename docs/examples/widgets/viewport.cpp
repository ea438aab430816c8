// SPDX-License-Identifier: MIT
// The program of docs/widgets.md.
// viewport MODEL [CHAIN [PICTURE]]: shows a model in a window, and says what is clicked. With a picture it saves that and ends.
#include <Chain/RenderChain.h>
#include <Import/ModelImporter.h>
#include <Widgets/ViewportWidget.h>

#include <QtWidgets/QAction>
#include <QtWidgets/QApplication>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QMainWindow>
#include <QtWidgets/QMenuBar>
#include <QtWidgets/QStatusBar>

using namespace Velmora::Kvz;

int main(int argc, char **argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts); // Before the application: viewports share models.
    QApplication application(argc, argv);
    const QStringList arguments = application.arguments();

    QMainWindow window;
    auto *const viewport = new ViewportWidget;
    window.setCentralWidget(viewport);
    window.resize(800, 600);
    QObject::connect(viewport, &ViewportWidget::failed, window.statusBar(),
        [&](const QString &line) { window.statusBar()->showMessage(line); });

    viewport->setChain(arguments.value(2, "forward"));
    ImportedScene scene;
    QString error;
    if (importModel(arguments.value(1), &scene, &error))
        viewport->setScene(scene);
    else
        window.statusBar()->showMessage(error);

    QObject::connect(viewport, &ViewportWidget::clicked, [&](const ScenePick &pick) {
        window.statusBar()->showMessage(pick.isHit() ? scene.items.value(pick.item).name : QString());
    });
    const auto save = [&](const QString &file) {
        const QImage picture = viewport->grabImage(QSize(1600, 1200), Qt::transparent);
        return !picture.isNull() && picture.save(file);
    };
    window.menuBar()->addAction("Save picture", [&] { save(QFileDialog::getSaveFileName(&window)); });

    if (arguments.size() > 3) {
        QObject::connect(
            viewport, &ViewportWidget::converged, &application, [&] { application.exit(save(arguments[3]) ? 0 : 1); },
            Qt::QueuedConnection);
    }
    window.show();
    return application.exec();
}
