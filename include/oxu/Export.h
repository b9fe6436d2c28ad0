/// What libOxuTool exports. Everything that does not carry OXU_EXPORT is built with hidden
/// visibility.
#ifndef OXU_EXPORT_H
#define OXU_EXPORT_H

#define OXU_EXPORT __attribute__((visibility("default")))

#endif
