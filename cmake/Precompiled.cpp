// SPDX-License-Identifier: MIT
// Gives the precompiled headers a target of their own.
