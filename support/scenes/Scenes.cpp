// SPDX-License-Identifier: Apache-2.0
#include "support/scenes/Scenes.h"

#include <array>
#include <cmath>
#include <stdexcept>

#include "support/scenes/SceneDesigns.h"

namespace vxsupport {

namespace {

struct Entry
{
    SceneKind kind;
    std::string_view name;
    SceneDesign (*design)(const SceneSettings&, const SceneArea&);
};

constexpr std::array<Entry, 4> entries{{
    {SceneKind::facade, "facade", designFacade},
    {SceneKind::board, "board", designBoard},
    {SceneKind::outdoor, "outdoor", designOutdoor},
    {SceneKind::target, "target", designTarget},
}};

const Entry& entryOf(SceneKind kind)
{
    for (const Entry& entry : entries)
        if (entry.kind == kind)
            return entry;
    throw std::invalid_argument("unknown kind of scene");
}

}  // namespace

const std::vector<SceneKind>& allSceneKinds()
{
    static const std::vector<SceneKind> kinds = [] {
        std::vector<SceneKind> list;
        list.reserve(std::size(entries));
        for (const Entry& entry : entries)
            list.push_back(entry.kind);
        return list;
    }();
    return kinds;
}

std::string_view nameOf(SceneKind kind)
{
    return entryOf(kind).name;
}

std::optional<SceneKind> sceneKindFrom(std::string_view name)
{
    for (const Entry& entry : entries)
        if (entry.name == name)
            return entry.kind;
    return std::nullopt;
}

FineScene makeScene(const SceneSettings& settings, int margin)
{
    if (settings.frame.width < 1 || settings.frame.height < 1)
        throw std::invalid_argument("scene: the frame must have at least one pixel");
    if (!(settings.zoom > 0.0 && std::isfinite(settings.zoom)))
        throw std::invalid_argument("scene: zoom must be above 0");
    const SceneDesign design = entryOf(settings.kind).design(settings, {settings.frame, margin});
    return design.layout.render(design.background);
}

}  // namespace vxsupport
