// ThreadSanitizer settings of the test programs. Qt, GLib and OpenSSL are not built with the
// sanitizer: their locks are invisible to it, so the memory they allocate on one thread and free
// on another, and the wake-up descriptors of their event loops, would be reported as races.
// Calls made from those libraries, and what Qt DBus reads on its own thread, are left out; our
// own code, including everything it runs from Qt's event loops and every hand-over it makes
// between threads, stays checked.
#if defined(__SANITIZE_THREAD__)

extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libQt6Core.so.6\ncalled_from_lib:libQt6Network.so.6\n"
           "called_from_lib:libQt6DBus.so.6\ncalled_from_lib:libQt6Gui.so.6\n"
           "called_from_lib:libQt6Widgets.so.6\ncalled_from_lib:libglib-2.0.so.0\n"
           "called_from_lib:libdbus-1.so.3\ncalled_from_lib:libcrypto.so.3\n"
           "called_from_lib:libssl.so.3\ncalled_from_lib:libqopensslbackend.so\n"
           // Qt DBus writes our values out, and looks the exported objects up, on its own
           // thread, under its own locks.
           "race:QDBusMetaType::marshall\nrace:QDBusMetaType::demarshall\n"
           "race:qDBusRegisterMetaType\nrace:metaObject\n"
           // Values that Qt copies and destroys through its meta-type system on either side of
           // such a hand-over.
           "race:QtPrivate::QMetaTypeForType\n";
}

#endif
