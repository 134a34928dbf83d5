// SPDX-License-Identifier: Apache-2.0
#include "bindings/python/src/Errors.h"

#include <cctype>
#include <new>
#include <opencv2/core.hpp>
#include <regex>
#include <string_view>

#include "core/base/Exception.h"
#include "support/drivers/SettingError.h"

namespace vxpy {

namespace {

PyObject* errorClass = nullptr;  // borrowed from the module, which lives as long as the process

void raise(PyObject* type, const std::string& message)
{
    PyErr_SetString(type, inPython(message).c_str());
}

}  // namespace

std::string inPython(const std::string& message)
{
    static const std::regex option("(^|[^A-Za-z0-9-])--([a-z][a-z-]*)");
    std::string text;
    std::string::const_iterator place = message.begin();
    for (std::sregex_iterator found(message.begin(), message.end(), option), none; found != none; ++found) {
        text.append(place, message.begin() + found->position(2) - 2);
        for (const char letter : found->str(2))
            text += letter == '-' ? '_' : letter;
        place = message.begin() + found->position(2) + found->length(2);
    }
    return text.append(place, message.end());
}

void raiseOfFile(const vxapp::UsageError& error)
{
    const std::string message = error.what();
    const auto tells = [&](std::string_view words) { return message.find(words) != std::string::npos; };
    PyObject* type = PyExc_OSError;
    if (message.starts_with("--") || tells("expected an output name that ends in"))
        type = PyExc_ValueError;
    else if (tells("no such file") || tells("does not exist"))
        type = PyExc_FileNotFoundError;
    else if (tells("exists already"))
        type = PyExc_FileExistsError;
    else if (tells("no permission") || tells("Permission denied"))
        type = PyExc_PermissionError;
    raise(type, message);
    throw py::error_already_set();
}

void raiseError(const std::string& message, int code)
{
    const py::object error = py::reinterpret_borrow<py::object>(errorClass)(inPython(message));
    error.attr("code") = code;
    PyErr_SetObject(errorClass, error.ptr());
    throw py::error_already_set();
}

void raiseStatus(vxkit_status status, const std::string& message)
{
    PyObject* type = errorClass;
    switch (status) {
        case VXKIT_NULL_ARGUMENT:
        case VXKIT_UNKNOWN_NAME:
        case VXKIT_OUT_OF_RANGE:
        case VXKIT_WRONG_SHAPE:
        case VXKIT_WRONG_TYPE:
            type = PyExc_ValueError;
            break;
        case VXKIT_OUT_OF_MEMORY:
            type = PyExc_MemoryError;
            break;
        default:
            break;
    }
    raise(type, message);
    throw py::error_already_set();
}

void addErrors(py::module_& module)
{
    errorClass =
        PyErr_NewExceptionWithDoc("vxkit.Error",
                                  "A failure of the library: an engine without a result, or one that no "
                                  "other exception fits.\n\nIts attribute ``code`` is the engine's code, or "
                                  "None.",
                                  PyExc_RuntimeError, nullptr);
    if (errorClass == nullptr)
        throw py::error_already_set();
    py::object error = py::reinterpret_steal<py::object>(errorClass);
    error.attr("code") = py::none();
    module.attr("Error") = error;
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            if (thrown)
                std::rethrow_exception(thrown);
        } catch (const vxapp::UsageError& failure) {
            raise(PyExc_ValueError, failure.what());
        } catch (const vxapp::EngineError& failure) {
            raise(errorClass, failure.what());
        } catch (const vxsupport::SettingError& failure) {
            raise(PyExc_ValueError, "--" + std::string(failure.what()));
        } catch (const halvor::vx::Exception& failure) {
            raise(errorClass, failure.what());
        } catch (const cv::Exception& failure) {
            raise(failure.code == cv::Error::StsNoMem ? PyExc_MemoryError : errorClass, failure.err);
        }
    });
}

}  // namespace vxpy
