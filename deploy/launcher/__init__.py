"""The parts of the launcher "run" of the video downloader tool (yt-dlp)."""
