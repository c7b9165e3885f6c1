#pragma once

#include <memory>

#include "menubar/menu_bar_controller.h"

/// The application's delegate in application mode: owns the tray agent for the life of the
/// process and starts it once the application has finished launching.
class AppDelegate {
public:
    AppDelegate() : controller(std::make_unique<MenuBarController>()) {}

    /// Starts the agent; called once, on the main thread, when the event loop is about to run.
    void applicationDidFinishLaunching() { controller->start(); }

    const std::unique_ptr<MenuBarController> controller;
};
