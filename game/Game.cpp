// placeholder, replaced shortly
