// SPDX-License-Identifier: Apache-2.0
// What was asked cannot be answered, and why.
export class Refusal extends Error {}
