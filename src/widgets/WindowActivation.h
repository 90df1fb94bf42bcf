#pragma once

class QWidget;

namespace sonra {

/// The keyboard for a window that the user has just asked for from elsewhere. Main thread only.
namespace WindowActivation {

/// Asks the window manager to make the window the active one, in the user's name and as of now, so
/// that one that guards the focus doesn't take it for a program that pushes itself forward. Asked
/// by the loop as soon as the server has told its time; a window that has been hidden by then is
/// left alone. The window must have been created. Under anything but X11 it does nothing.
void claim(QWidget& window);

}  // namespace WindowActivation
}  // namespace sonra
