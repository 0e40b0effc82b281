// The plugin file: GStreamer finds quorinsrc here on its plugin path.
#include "quorin_src.h"

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, quorin, QUORIN_PLUGIN_DESCRIPTION, quorin_src_register,
                  QUORIN_VERSION, "Proprietary", "QUORIN", "QUORIN")
