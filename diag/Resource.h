/* Resource identifiers of the dialog, the tray icon and its menu: for the resource compiler and for C++. */
#ifndef MORVANE_DIAG_RESOURCE_H
#define MORVANE_DIAG_RESOURCE_H

#define IDD_DEBUG_OPTIONS 103
#define IDR_TRAY_MENU     206

/* The tray icon: three frames that move while data does, and the one for "no instrument". */
#define IDI_CONNECTED_1  203
#define IDI_DISCONNECTED 204
#define IDI_CONNECTED_2  207
#define IDI_CONNECTED_3  209

/* Controls of the dialog. Icons and controls are numbered separately, so 204 stands for two things. */
#define IDC_RESET_ALL         202
#define IDC_APPEND_TO_FILE    204
#define IDC_LOG_FILE_SIZE     208
#define IDC_MAX_PACKET        210
#define IDC_MAX_PARSED        211
#define IDC_DEVICE            215
#define IDC_READ_WRITE_LOG    216
#define IDC_READ_WRITE_SHOW   217
#define IDC_PIPE_LOG          220
#define IDC_PIPE_SHOW         221
#define IDC_USB_LOG           222
#define IDC_USB_SHOW          223
#define IDC_ENABLE_SIMULATION 224
#define IDC_LOG_FOLDER        225
#define IDC_PARSING_LOG       226
#define IDC_PARSING_SHOW      227
#define IDC_DISPATCH_LOG      228
#define IDC_DISPATCH_SHOW     229
#define IDC_GENERAL_LOG       230
#define IDC_GENERAL_SHOW      231

/* The tray menu's one entry. */
#define ID_OPTIONS 32770

#endif
