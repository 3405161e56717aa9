#pragma once
// Base directories of the XDG layout, for the default locations of the component's
// files. A relative value in an XDG variable is ignored, as the layout requires.
#include <string>

namespace vxcloud::xdg {

// $HOME, else the home directory of the password database entry; "/" when neither.
std::string homeDir();
// $XDG_CONFIG_HOME, else ~/.config
std::string configHome();
// $XDG_DATA_HOME, else ~/.local/share
std::string dataHome();

}  // namespace vxcloud::xdg
