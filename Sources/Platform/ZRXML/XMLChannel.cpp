// Implemented with the XML channels.
