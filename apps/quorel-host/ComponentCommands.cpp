#include "apps/quorel-host/ComponentCommands.h"

#include <QAction>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QToolBar>

#include <algorithm>

namespace quorel::host_app {
namespace {

QString Q(const std::string& text) {
    return QString::fromStdString(text);
}

QMenu* MenuNamed(QMainWindow& window, const QString& name) {
    for (QAction* action : window.menuBar()->actions()) {
        if (action->menu() != nullptr && action->menu()->objectName() == name) {
            return action->menu();
        }
    }
    return nullptr;
}

} // namespace

QImage PictureToImage(const com::Picture& picture) {
    const auto width = static_cast<std::size_t>(std::max(picture.width, 0));
    const auto height = static_cast<std::size_t>(std::max(picture.height, 0));
    if (width == 0 || height == 0 || picture.pixels.size() < width * height * 3) {
        return {};
    }
    QImage image(picture.width, picture.height, QImage::Format_RGB888);
    for (std::size_t row = 0; row < height; ++row) {
        const char* source = picture.pixels.data() + (height - 1 - row) * width * 3;
        uchar* target = image.scanLine(static_cast<int>(row));
        for (std::size_t x = 0; x < width; ++x) {
            target[x * 3] = static_cast<uchar>(source[x * 3 + 2]);
            target[x * 3 + 1] = static_cast<uchar>(source[x * 3 + 1]);
            target[x * 3 + 2] = static_cast<uchar>(source[x * 3]);
        }
    }
    return image;
}

ComponentCommands::ComponentCommands(QMainWindow& window, const ComponentSet& components,
                                     ClickHandler click)
    : m_window(window), m_components(components), m_click(std::move(click)) {
    BuildCommands();
    BuildRootMenus();
    BuildFailures();
    UpdateStates();
}

void ComponentCommands::BuildCommands() {
    const auto& commands = m_components.Commands();
    for (std::size_t i = 0; i < commands.size(); ++i) {
        com::ICommand& command = *commands[i].command.get();
        const QString category = Q(command.Category());
        QToolBar*& bar = m_categoryBars[category];
        QMenu* menu = MenuNamed(m_window, category);
        if (bar == nullptr) {
            bar = m_window.addToolBar(category);
            bar->setObjectName(category);
            bar->setIconSize(QSize(36, 32));
            bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
            menu = m_window.menuBar()->addMenu(category);
            menu->setObjectName(category);
        }
        auto* action = new QAction(Q(command.Caption()), &m_window);
        action->setObjectName(Q(commands[i].progId));
        action->setToolTip(Q(command.Tooltip()));
        action->setStatusTip(Q(command.Message()));
        const QImage image = PictureToImage(command.BitmapData());
        if (!image.isNull()) {
            action->setIcon(QIcon(QPixmap::fromImage(image)));
        }
        QObject::connect(action, &QAction::triggered, &m_window, [this, i] { m_click(i); });
        bar->addAction(action);
        menu->addAction(action);
        m_commandActions.push_back(action);
    }
}

void ComponentCommands::BuildRootMenus() {
    const auto& commands = m_components.Commands();
    for (const RootMenu& root : m_components.Menus()) {
        QMenu* menu = m_window.menuBar()->addMenu(Q(root.caption));
        menu->setObjectName(Q(root.progId));
        menu->setToolTip(Q(root.name));
        for (const MenuItem& item : root.items) {
            if (item.startsGroup) {
                menu->addSeparator();
            }
            QAction* action = menu->addAction(Q(item.progId));
            action->setObjectName(Q(item.progId));
            action->setEnabled(false);
            const auto provider =
                std::find_if(commands.begin(), commands.end(),
                             [&](const LoadedCommand& c) { return c.progId == item.progId; });
            if (provider != commands.end()) {
                // A loaded command shows as it does in its toolbar.
                const auto index = static_cast<std::size_t>(provider - commands.begin());
                com::ICommand& command = *provider->command.get();
                action->setText(Q(command.Caption()));
                action->setToolTip(Q(command.Tooltip()));
                action->setStatusTip(Q(command.Message()));
                if (const QImage image = PictureToImage(command.BitmapData()); !image.isNull()) {
                    action->setIcon(QIcon(QPixmap::fromImage(image)));
                }
                QObject::connect(action, &QAction::triggered, &m_window,
                                 [this, index] { m_click(index); });
                m_menuItems.emplace_back(action, index);
            } else if (item.registered) {
                action->setToolTip(QStringLiteral("Commande d'un autre composant"));
            }
        }
    }
}

void ComponentCommands::BuildFailures() {
    if (m_components.Failures().empty()) {
        return;
    }
    QMenu* menu = m_window.menuBar()->addMenu(QStringLiteral("Co&mposants"));
    menu->setObjectName(QStringLiteral("failedComponents"));
    menu->setToolTipsVisible(true);
    for (const LoadFailure& failure : m_components.Failures()) {
        // A component that did not load can only be named; its item says why it is disabled.
        QAction* action = menu->addAction(Q(failure.progId));
        action->setObjectName(Q(failure.progId));
        action->setToolTip(QStringLiteral("Non chargé : ") + QString::fromUtf8(failure.reason));
        action->setEnabled(false);
    }
}

void ComponentCommands::UpdateStates() {
    const auto& commands = m_components.Commands();
    for (std::size_t i = 0; i < commands.size(); ++i) {
        m_commandActions[i]->setEnabled(commands[i].command->Enabled());
        m_commandActions[i]->setChecked(commands[i].command->Checked());
    }
    for (const auto& [action, index] : m_menuItems) {
        action->setEnabled(commands[index].command->Enabled());
    }
}

QAction* ComponentCommands::CommandAction(const QString& progId) const {
    for (QAction* action : m_commandActions) {
        if (action->objectName() == progId) {
            return action;
        }
    }
    return nullptr;
}

QToolBar* ComponentCommands::CategoryToolBar(const QString& category) const {
    const auto found = m_categoryBars.find(category);
    return found == m_categoryBars.end() ? nullptr : found->second;
}

QString ComponentCommands::FailureText() const {
    QStringList lines;
    for (const LoadFailure& failure : m_components.Failures()) {
        lines << QStringLiteral("%1 : %2").arg(Q(failure.progId),
                                               QString::fromUtf8(failure.reason));
    }
    return lines.join(QLatin1Char('\n'));
}

} // namespace quorel::host_app
