# updater-guard, which makes an update atomic.
