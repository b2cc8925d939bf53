// The psdkit Python module: psdkit._psdkit, wrapped by the pure-Python package psdkit.
#include "Bindings.hpp"

#include "psdkit/Version.hpp"
#include "psdkit/core/PSDError.hpp"
#include "psdkit/platform/support/Diagnostics.hpp"

PYBIND11_MODULE(_psdkit, module)
{
    namespace python = psdkit::python;
    module.doc() = "Reads and writes layered PSD and PSB documents (the compiled part of psdkit).";
    psdkit::PSDError::initialize();
    // The library's trace lines (one per block and descriptor item read) are for its own tools;
    // a Python program would see them on its terminal.
    psdkit::setDiagnosticsSink({});
    python::registerErrors(module);
    python::bindLayer(module);
    python::bindDocument(module);
    python::bindDescriptors(module);
    python::bindHostApplication(module);
    module.attr("__version__") = PSDKIT_VERSION;
}
