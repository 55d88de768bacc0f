// ttservice::CSingletonT<T>: the process-wide instance of a platform service, reached as
// CSingletonT<T>::instance().
//
// The template only declares instance(); each service defines its own specialisation in its
// implementation file and declares it in its header. The instance therefore lives in exactly one
// shared library (the one that implements the service), and every library that calls instance()
// shares it, instead of each getting its own copy of an inline function-local static.
//
// Thread safety: instance() may be called from any thread; the first call constructs the service
// (C++11 guarantees that construction happens once).
#pragma once

namespace ttservice {

template <class T>
struct CSingletonT {
    static T& instance();
};

}  // namespace ttservice
