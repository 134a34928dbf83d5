// SPDX-License-Identifier: Apache-2.0
#include "bindings/python/src/Errors.h"

#include <cctype>
#include <new>
#include <opencv2/core.hpp>
#include <regex>
#include <string_view>
#include <utility>

#include "core/base/Exception.h"
#include "support/drivers/SettingError.h"

namespace vxpy {

namespace {

PyObject* errorClass = nullptr;  // borrowed from the module, which lives as long as the process

void raise(PyObject* type, const std::string& message)
{
    PyErr_SetObject(type, textOf(inPython(message)).ptr());
}

// "uint16" of "u16": types of samples as numpy calls them.
std::string withNumpyNames(const std::string& text, const std::string& before)
{
    const auto renamed = [&](const std::string& in, const char* letters, const char* name) {
        const std::regex type("\\b(" + before + ")[" + letters + "](8|16|32|64)\\b");
        return std::regex_replace(in, type, "$1" + std::string(name) + "$2");
    };
    return renamed(renamed(renamed(text, "u", "uint"), "is", "int"), "f", "float");
}

}  // namespace

py::str textOf(const std::string& text)
{
    PyObject* const decoded =
        PyUnicode_DecodeUTF8(text.data(), static_cast<py::ssize_t>(text.size()), "surrogateescape");
    if (decoded == nullptr)
        throw py::error_already_set();
    return py::reinterpret_steal<py::str>(decoded);
}

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
    return withNumpyNames(text.append(place, message.end()), "dtype ");
}

namespace {

// @param usual  of what tells of nothing that may happen to a file
PyObject* kindOf(const std::string& message, PyObject* usual)
{
    const auto tells = [&](std::string_view words) { return message.find(words) != std::string::npos; };
    PyObject* type = usual;
    if (message.starts_with("--") || tells("expected an output name that ends in"))
        type = PyExc_ValueError;
    else if (tells("no such file") || tells("does not exist"))
        type = PyExc_FileNotFoundError;
    else if (tells("exists already"))
        type = PyExc_FileExistsError;
    else if (tells("no permission") || tells("Permission denied"))
        type = PyExc_PermissionError;
    else if (tells("can't be read") || tells("can't be decoded"))
        type = PyExc_OSError;
    return type;
}

}  // namespace

void raiseOfFile(const vxapp::UsageError& error)
{
    const std::string message = error.what();
    raise(kindOf(message, PyExc_OSError), message);
    throw py::error_already_set();
}

void raiseError(const std::string& message, int code)
{
    const py::object error = py::reinterpret_borrow<py::object>(errorClass)(textOf(inPython(message)));
    error.attr("code") = code;
    PyErr_SetObject(errorClass, error.ptr());
    throw py::error_already_set();
}

void raiseStatus(vxkit_status status, const std::string& message)
{
    PyObject* type = errorClass;
    static const std::regex function("vxkit_([a-z_]+)");
    std::string text = std::regex_replace(withNumpyNames(message, ""), function, "$1()");
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
        case VXKIT_BUSY:
            text = "in use by another thread; an object takes one call at a time";
            break;
        default:
            break;
    }
    raise(type, text);
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
                std::rethrow_exception(std::move(thrown));
        } catch (const vxapp::UsageError& failure) {
            raise(kindOf(failure.what(), PyExc_ValueError), failure.what());
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
