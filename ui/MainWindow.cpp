#include "ui/MainWindow.h"

#include "ui_MainWindow.h"

void setUpMainWindow(QMainWindow &window)
{
    Ui::MainWindow().setupUi(&window);
}
