#include "app/AppDelegate.h"
#include "ui/MainWindow.h"
#include "ui/ViewController.h"

int main(int argc, char *argv[])
{
    return platform::applicationMain(
        argc, argv,
        {
            .name = QStringLiteral("Tarnwell"),
            .version = QStringLiteral(TARNWELL_VERSION),
            .desktopFileName = QStringLiteral("org.tarnwell.Tarnwell"),
            .iconFile = QStringLiteral(":/tarnwell.png"),
            .setUpMainLayout = setUpMainWindow,
            .makeDelegate = [] { return std::make_unique<AppDelegate>(); },
            .makeViewController =
                [](platform::Coder &coder) { return std::make_unique<ViewController>(coder); },
        });
}
