// quorinsrc: a GStreamer source element for ORBILUX-VELTA K5 and K5C
// cameras through the QUORIN library. It gives live frames, or the frames
// recorded in the camera's memory stamped with the camera's time codes.
#pragma once

#include <gst/base/gstpushsrc.h>

G_BEGIN_DECLS

#define QUORIN_PLUGIN_DESCRIPTION "ORBILUX-VELTA K5 and K5C cameras through the QUORIN library"

#define QUORIN_TYPE_SRC (quorin_src_get_type())
G_DECLARE_FINAL_TYPE(QuorinSrc, quorin_src, QUORIN, SRC, GstPushSrc)

// Adds quorinsrc to a plugin: the init function of the plugin file.
gboolean quorin_src_register(GstPlugin *plugin);

// Adds the plugin to the registry of a program that links the element
// (the tool, the tests), where no plugin file is needed. Call after
// gst_init().
gboolean quorin_src_register_static(void);

G_END_DECLS
