// placeholder: written in its step
