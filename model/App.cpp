#include "model/App.h"

#include <QLocale>

#include <cmath>

App::App(const QString &name, const QString &path, std::shared_ptr<platform::Bundle> bundle)
    : m_name(name)
    , m_path(path)
    , m_bundle(std::move(bundle))
    , m_identifier(m_bundle->bundleIdentifier())
{}

void App::setName(const QString &name)
{
    m_name = name;
    emit nameChanged();
}

void App::setPath(const QString &path)
{
    m_path = path;
    emit pathChanged();
}

void App::setBundle(const std::shared_ptr<platform::Bundle> &bundle)
{
    m_bundle = bundle;
    emit bundleChanged();
}

void App::setAppIcon(const QIcon &icon)
{
    m_appIcon = icon;
    emit appIconChanged();
}

void App::setIdentifier(const QString &identifier)
{
    m_identifier = identifier;
    emit identifierChanged();
}

void App::setSize(std::optional<float> size)
{
    m_size = size;
    emit sizeChanged();
}

void App::setSizeVariant(const QVariant &size)
{
    setSize(size.isValid() ? std::optional(size.toFloat()) : std::nullopt);
}

void App::setVersion(const QString &version)
{
    m_version = version;
    emit versionChanged();
}

QString App::sizeMB() const
{
    if (!m_size) {
        return QStringLiteral("");
    }
    // QLocale rounds half away from zero. Ten times a single-precision number is exact in
    // double precision, so nearbyint sees a half as a half and rounds it to even.
    const double tenths = std::nearbyint(double(*m_size) * 10.0);
    const int fractionDigits = std::fmod(tenths, 10.0) == 0.0 ? 0 : 1;
    // Qt 6.4 leaves out the first separator from 1,000,000 to 9,999,999 in Spanish, Polish and the
    // Portuguese of Portugal ("1234.567"). No application takes a terabyte, so it stays.
    return QLocale().toString(tenths / 10.0, 'f', fractionDigits) + QStringLiteral(" MB");
}
