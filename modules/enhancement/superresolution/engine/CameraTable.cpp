// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/engine/CameraTable.h"

#include <locale>
#include <sstream>
#include <string_view>

#include "enhancement/superresolution/engine/EngineDefaults.h"

namespace halvor::vx {

namespace {

struct Camera
{
    std::string_view model;
    float narrowSigma;
    float wideSigma;

    std::string_view digits() const { return model.substr(1); }
};

// Lenses from this field of view on are wide ones.
constexpr int wideFieldOfView = 23;

// In the order in which a text is searched for them: a text may hold the digits of several.
constexpr Camera cameras[] = {
    {"k310", 0.81F, 0.81F}, {"k315", 0.01F, 0.01F},   {"k316", 0.01F, 0.01F}, {"k320", 0.01F, 0.01F},
    {"k321", 0.01F, 0.01F}, {"k322", 0.625F, 0.625F}, {"k325", 0.65F, 0.35F}, {"k330", 0.34F, 0.34F},
};

const Camera* findCamera(const std::string& text)
{
    for (const Camera& camera : cameras)
        if (text.find(camera.digits()) != std::string::npos)
            return &camera;
    return nullptr;
}

}  // namespace

bool decodeCameraAndLens(const std::string& text, std::string& model, int& fieldOfView)
{
    const Camera* camera = findCamera(text);
    if (camera == nullptr)
        return false;
    model = camera->model;

    constexpr std::string_view label = "FOV";
    const std::size_t place = text.find(label);
    if (place == std::string::npos)
        return false;

    // The number goes through a variable of its own because a stream stores 0 where there is none and the
    // nearest limit where it is too large: both are no field of view.
    fieldOfView = -1;
    std::istringstream stream(text.substr(place + label.size()));
    stream.imbue(std::locale::classic());
    int number = 0;
    if (stream >> number)
        fieldOfView = number;
    return fieldOfView != -1;
}

float psfSigmaOf(const std::string& model, int fieldOfView)
{
    for (const Camera& camera : cameras)
        if (camera.model == model)
            return fieldOfView < wideFieldOfView ? camera.narrowSigma : camera.wideSigma;
    return EngineDefaults::psfSigma;
}

}  // namespace halvor::vx
