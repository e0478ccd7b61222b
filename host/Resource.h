// Identifiers of the program's resources. Also read by the resource compiler. The dialogs and menus have theirs in
// diag/Resource.h.
#pragma once

#define IDR_TYPELIB          1
#define IDR_APPID            101 // registration script of the application
#define IDR_MORVANEUSBROUTER 102 // registration script of the class
#define IDR_TYPELIB_SCRIPT   105 // registration script of the type library, for one user
