// SPDX-License-Identifier: MIT
#include <QApplication>
#include <QMainWindow>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setOrganizationName("Quillfern");
    QApplication::setApplicationName("Quillfern");
    QMainWindow window;
    window.setWindowTitle("No devices connected");
    window.resize(1000, 700);
    window.show();
    return app.exec();
}
