namespace KRC {}
