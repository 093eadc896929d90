// SPDX-License-Identifier: Apache-2.0
//
// Nothing: the target of this file compiles the headers that most tests begin with.
