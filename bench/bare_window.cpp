// The peer of the program's start: a window with nothing in it. Ends when it has been drawn.

#include <QApplication>
#include <QMainWindow>

namespace {

class BareWindow : public QMainWindow
{
protected:
    void paintEvent(QPaintEvent *) override
    {
        QApplication::postEvent(qApp, new QEvent(QEvent::Quit));
    }
};

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    BareWindow window;
    window.resize(1080, 600);
    window.show();
    return QApplication::exec();
}
