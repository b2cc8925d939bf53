// The psdkit Python module: psdkit._psdkit, wrapped by the pure-Python package psdkit.
#include "Bindings.hpp"

#include "psdkit/Version.hpp"
#include "psdkit/core/PSDError.hpp"

PYBIND11_MODULE(_psdkit, module)
{
    namespace python = psdkit::python;
    module.doc() = "Reads and writes layered PSD and PSB documents (the compiled part of psdkit).";
    psdkit::PSDError::initialize();
    python::registerErrors(module);
    python::bindLayer(module);
    python::bindDocument(module);
    python::bindDescriptors(module);
    module.attr("__version__") = PSDKIT_VERSION;
}
