#pragma once

class QMainWindow;

/// Builds the layout of the main window, MainWindow.ui.
void setUpMainWindow(QMainWindow &window);
